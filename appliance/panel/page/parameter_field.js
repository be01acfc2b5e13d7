// One parameter: its value in a fitting control, what it takes, when it is in force, and why a value is not right.

import { h, sentence, setHidden, setText } from "./dom.js";

// In which way a value does not fit; "" when it does. The decoder checks again and has the last word.
export function whyWrong(parameter, value) {
  const words = parameter.words || [];
  if (words.includes(value) || value === "") return "";
  const numeric = parameter.kind === "number" || parameter.kind === "choiceOrNumber";
  if (numeric && parameter.most > parameter.least) {
    const fits = /^-?\d+$/.test(value) && Number(value) >= parameter.least && Number(value) <= parameter.most;
    return fits ? "" : `This takes ${taken(parameter)}.`;
  }
  if (parameter.kind === "choiceOrSize") return /^\d+x\d+$/.test(value) ? "" : `This takes ${taken(parameter)}.`;
  if ((parameter.kind === "choice" || parameter.kind === "yesNo") && words.length) return `This takes ${taken(parameter)}.`;
  return "";
}

export function taken(parameter) {
  if (parameter.values) return parameter.values;
  const words = (parameter.words || []).join(", ");
  const range = parameter.most > parameter.least ? `${parameter.least} to ${parameter.most}` : "";
  return [words, range].filter((part) => part).join(", or ") || "any text";
}

let count = 0;

export class ParameterField {
  // `label`: how it is named here. `onChange` is called when the value is another one.
  constructor(parameter, label, onChange = () => {}) {
    this.parameter = parameter;
    this.label = label;
    this.stored = parameter.value ?? "";
    this.secret = Boolean(parameter.secret);
    if (this.secret) this.stored = "";
    this.make(onChange);
  }

  make(onChange) {
    const id = `parameter-${++count}`;
    this.control = this.makeControl();
    this.control.id = id;
    this.control.setAttribute("aria-describedby", `${id}-reason ${id}-hint`);
    this.reason = h("p", { class: "reason", id: `${id}-reason`, hidden: true });
    this.mark = h("span", { class: "changed", hidden: true }, "changed");
    this.undo = h("button", { type: "button", class: "quiet undo", hidden: true, onclick: () => this.reset(onChange) }, "Undo");
    const { description, effect } = this.parameter;
    const hint = h("p", { class: "hint", id: `${id}-hint` },
                   [sentence(description), this.takes(), effect && `In force ${effect}`].filter((part) => part)
                     .map((part) => `${part.replace(/\.$/, "")}.`).join(" "));
    this.element = h("div", { class: "parameter" },
                     h("div", { class: "parameter-name" }, h("label", { for: id }, this.label), this.mark, this.undo),
                     this.control, this.reason, hint);
    this.control.addEventListener("input", () => {
      this.showChange();
      if (!this.reason.hidden) this.check();
      onChange();
    });
    this.control.addEventListener("change", () => {
      this.check();
      onChange();
    });
  }

  takes() {
    const says = this.control.tagName !== "SELECT" && this.parameter.kind !== "text";
    return says ? `Takes ${taken(this.parameter)}` : "";
  }

  makeControl() {
    const { words = [], kind } = this.parameter;
    const closed = words.length > 0 && (kind === "yesNo" || kind === "choice");
    if (!closed) {
      return h("input", { type: this.secret ? "password" : "text", value: this.stored, spellcheck: "false",
                          autocomplete: this.secret ? "new-password" : "off", autocapitalize: "none",
                          inputmode: kind === "number" ? "numeric" : null,
                          placeholder: this.secret && this.parameter.value ? "set; write a new one to change it" : null });
    }
    // A value that is not allowed stays visible until it is changed.
    const values = words.includes(this.stored) ? words : [this.stored, ...words];
    const select = h("select", {}, ...values.map((word) => h("option", { value: word }, word || "not set")));
    select.value = this.stored;
    return select;
  }

  value() {
    return this.control.value;
  }

  changed() {
    return this.value() !== this.stored;
  }

  // Whether the value is right; otherwise the reason is shown.
  check() {
    this.refuse(this.changed() ? whyWrong(this.parameter, this.value()) : "");
    return this.reason.hidden;
  }

  refuse(text) {
    setText(this.reason, text);
    setHidden(this.reason, !text);
    if (text) this.control.setAttribute("aria-invalid", "true");
    else this.control.removeAttribute("aria-invalid");
  }

  showChange() {
    setHidden(this.mark, !this.changed());
    setHidden(this.undo, !this.changed());
    this.element.classList.toggle("is-changed", this.changed());
  }

  saved() {
    this.stored = this.secret ? "" : this.value();
    if (this.secret) this.control.value = "";
    this.refuse("");
    this.showChange();
  }

  reset(onChange) {
    this.control.value = this.stored;
    this.refuse("");
    this.showChange();
    this.control.focus();
    onChange();
  }
}
