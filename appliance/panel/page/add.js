// Adding a source: its address is tried first, and nothing is added when the camera does not play.

import { h, run, say, setHidden, setText } from "./dom.js";
import { field, openDialog, reasonLine } from "./dialogs.js";
import { post } from "./api.js";

function input(name, properties = {}) {
  return h("input", { name, autocomplete: "off", autocapitalize: "none", spellcheck: "false", ...properties });
}

// The JSON of the form; fields that are empty are left out.
function values(form) {
  const all = Object.fromEntries(new FormData(form));
  const said = Object.fromEntries(Object.entries(all).filter(([, value]) => value !== ""));
  if (said.unchecked) said.unchecked = true;
  return said;
}

function complete(fields) {
  let first = null;
  for (const item of fields) {
    item.refuse(item.control.value.trim() ? "" : "This is needed.");
    if (!item.control.value.trim()) first = first || item.control;
  }
  first?.focus();
  return !first;
}

export function openAdd() {
  const { dialog, body } = openDialog("Add a source", "side");
  const name = field("Name", input("name", { autocapitalize: "words" }), "As it is shown on the screen.");
  const url = field("Address", input("url", { placeholder: "rtsp://192.168.1.20/stream1", inputmode: "url" }),
                    "The camera's manual has it: rtsp://, http:// or a file.");
  const user = field("User name", input("user"), "Only if the camera asks for it.");
  const password = field("Password", input("password", { type: "password", autocomplete: "new-password" }));
  const sub = field("Address of a smaller stream", input("subUrl", { inputmode: "url" }), "Optional, for small boards and walls.");
  const reason = reasonLine();
  const found = h("p", { class: "good-news", role: "status", hidden: true });
  const test = h("button", { type: "button" }, "Test the address");
  const add = h("button", { class: "primary" }, "Add");
  const unchecked = h("label", { class: "check" }, h("input", { type: "checkbox", name: "unchecked", value: "yes" }),
                      "Add it even if the camera can't be reached now");
  const form = h("form", { novalidate: true }, name.element, url.element, user.element, password.element,
                 h("details", { class: "part" }, h("summary", {}, "More"), sub.element, unchecked),
                 reason.element, found, h("div", { class: "actions" }, add, test));
  const ask = (button, words, action) => run(button, async () => {
    reason.show("");
    setHidden(found, false);
    setText(found, words);
    try {
      await action(values(form));
    } catch (error) {
      setHidden(found, true);
      reason.show(error.message);
    }
  });
  test.addEventListener("click", () => complete([url]) && ask(test, "Asking the camera …", async (said) => {
    const answer = await post("/sources/test", { url: said.url, user: said.user, password: said.password });
    setText(found, `It plays: ${answer.video}`);
  }));
  form.addEventListener("submit", (event) => {
    event.preventDefault();
    if (!complete([name, url])) return;
    ask(add, "Asking the camera …", async (said) => {
      const answer = await post("/sources", said);
      dialog.close();
      say(answer.message);
    });
  });
  body.append(form);
  name.control.focus();
}
