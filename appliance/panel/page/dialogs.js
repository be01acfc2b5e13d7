// Dialogs: the browser's own <dialog>, which keeps the focus inside, closes with escape and gives the focus back.

import { h, icon, sentence, setHidden, setText } from "./dom.js";

// A dialog with a title. `body` is where its content goes. It is removed when it closes.
export function openDialog(title, kind = "") {
  const heading = h("h2", { id: "dialog-title", tabindex: "-1", autofocus: true }, title);
  const close = h("button", { type: "button", class: "quiet square", "aria-label": "Close" }, icon("close"));
  const body = h("div", { class: "dialog-body" });
  const dialog = h("dialog", { class: kind, "aria-labelledby": "dialog-title" },
                   h("div", { class: "dialog-head" }, heading, close), body);
  close.addEventListener("click", () => dialog.close());
  dialog.addEventListener("click", (event) => event.target === dialog && dialog.close()); // beside it
  dialog.addEventListener("close", () => dialog.remove());
  document.body.append(dialog);
  dialog.showModal();
  return { dialog, body, heading };
}

// A line for the reason of a refusal, which a screen reader reads at once.
export function reasonLine() {
  const element = h("p", { class: "reason", role: "alert", hidden: true });
  return { element, show: (text) => {
    setHidden(element, !text);
    setText(element, sentence(text));
  } };
}

let fieldNumber = 0;

// A label, its control and a line for the reason: {element, control, refuse(text)}.
export function field(label, control, hint = "") {
  const id = `field-${++fieldNumber}`;
  control.id = control.id || id;
  const reason = h("span", { class: "reason", id: `${id}-reason` });
  const note = h("span", { class: "hint", id: `${id}-hint` }, hint);
  control.setAttribute("aria-describedby", `${id}-reason ${id}-hint`);
  const element = h("div", { class: "field" }, h("label", { for: control.id }, label), control, reason, note);
  const refuse = (text) => {
    setText(reason, text);
    if (text) control.setAttribute("aria-invalid", "true");
    else control.removeAttribute("aria-invalid");
  };
  control.addEventListener("input", () => refuse(""));
  return { element, control, refuse };
}

// Asks before something is lost. Resolves to true when the user agrees.
export function confirmDialog(title, text, action) {
  return new Promise((resolve) => {
    const { dialog, body } = openDialog(title, "small");
    const agree = h("button", { type: "button", class: "danger", onclick: () => { resolve(true); dialog.close(); } }, action);
    const refuse = h("button", { type: "button", onclick: () => dialog.close() }, "Cancel");
    body.append(h("p", {}, text), h("div", { class: "actions" }, agree, refuse));
    dialog.addEventListener("close", () => resolve(false));
  });
}
