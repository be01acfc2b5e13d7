// The test alarm.

import { h, run, say, setText } from "./dom.js";
import { field, openDialog, reasonLine } from "./dialogs.js";
import { post } from "./api.js";
import { state } from "./store.js";

const mostBytes = 39; // longer texts are cut by the decoder

export function openAlarm() {
  const { dialog, body } = openDialog("Test alarm", "small");
  const choice = h("select", { name: "source" },
                   ...state.sources.map((source) => h("option", { value: source.index }, source.name)));
  if (state.status?.currentSource >= 0) choice.value = String(state.status.currentSource);
  const source = field("Source", choice);
  const text = field("Text", h("input", { name: "text", value: "Test", autocomplete: "off" }));
  const left = text.element.querySelector(".hint");
  const reason = reasonLine();
  const count = () => {
    const bytes = new TextEncoder().encode(text.control.value).length;
    setText(left, bytes > mostBytes ? "Too long: the end is cut." : `${mostBytes - bytes} more characters fit.`);
  };
  text.control.addEventListener("input", count);
  count();
  const send = h("button", { class: "primary" }, "Raise the alarm");
  const form = h("form", {}, source.element, text.element, reason.element,
                 h("div", { class: "actions" }, send, h("button", { type: "button", onclick: () => dialog.close() }, "Cancel")));
  form.addEventListener("submit", (event) => {
    event.preventDefault();
    run(send, async () => {
      try {
        const answer = await post("/alarm", { source: Number(choice.value), text: text.control.value });
        dialog.close();
        say(answer.message);
      } catch (error) {
        reason.show(error.message);
      }
    });
  });
  body.append(h("p", { class: "hint" }, "The decoder shows the source and the text for a while, as in a real alarm."), form);
}
