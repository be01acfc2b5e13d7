// The steps of a source's last detection as a ladder: each request, its answer, and what the decoder decided.

import { h } from "./dom.js";
import { get } from "./api.js";

const time = (milliseconds) => (typeof milliseconds === "number" ? `${milliseconds.toFixed(1)} ms` : "");

function rung(step) {
  switch (step.kind) {
  case "request":
    return h("li", { class: "rung request" }, h("span", { class: "rung-time" }, time(step.beginMs)),
             h("code", {}, step.text),
             h("span", { class: "rung-answer" }, h("span", { class: "rung-time" }, `after ${time(step.tookMs)}`),
               h("code", {}, step.answer || "no answer")));
  case "decision":
    return h("li", { class: "rung decision" }, h("strong", {}, step.text));
  case "end":
    return h("li", { class: `rung end ${/accepted/.test(step.text) ? "good" : "bad"}` },
             h("span", { class: "rung-time" }, time(step.beginMs)), h("strong", {}, step.text));
  default:
    return h("li", { class: "rung" }, step.text);
  }
}

// An element that fills itself.
export function ladder(index) {
  const box = h("div", { class: "ladder", "aria-busy": "true" }, h("p", { class: "hint" }, "Reading …"));
  get(`/sources/${index}/explanation`).then((answer) => {
    const steps = Array.isArray(answer) ? answer : answer.steps || [];
    box.replaceChildren(h("ol", { class: "rungs" }, ...steps.map(rung)));
  }).catch((error) => {
    box.replaceChildren(h("p", { class: "hint" }, error.message));
  }).finally(() => box.removeAttribute("aria-busy"));
  return box;
}
