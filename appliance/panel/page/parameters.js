// The decoder's settings: all parameters that do not belong to a source. Nothing is saved before every value is right.

import { h, byId, run, say, setHidden, setText, warn } from "./dom.js";
import { get, patch } from "./api.js";
import { ParameterField } from "./parameter_field.js";
import { mayAct, on } from "./store.js";
import { labelOf, plural } from "./words.js";

let fields = [];
let groups = [];
let bar = null;
let loaded = false;

const groupOf = (name) => name.split(".")[0];

function makeGroup(title, parameters) {
  const items = parameters.map((parameter) => new ParameterField(parameter, labelOf(parameter.name), showBar));
  for (const item of items) {
    item.control.disabled = !mayAct("admin");
    item.element.querySelector("label").title = item.parameter.name;
  }
  const element = h("fieldset", { class: "card group" }, h("legend", {}, title), ...items.map((item) => item.element));
  return { element, items };
}

function makeBar() {
  const words = h("p", { class: "bar-words", role: "status" });
  const save = h("button", { class: "primary" }, "Save");
  const discard = h("button", { type: "button", onclick: discardAll }, "Discard");
  const element = h("div", { class: "save-bar", hidden: true }, words, discard, save);
  return { element, words, save };
}

function showBar() {
  const changed = fields.filter((item) => item.changed());
  const wrong = changed.filter((item) => !item.reason.hidden);
  setHidden(bar.element, changed.length === 0);
  const count = plural(changed.length, "change", "changes");
  setText(bar.words, wrong.length ? `${count}, ${wrong.length} not right: nothing is saved yet` : `${count}, not saved yet`);
}

function discardAll() {
  for (const item of fields) {
    item.control.value = item.stored;
    item.refuse("");
    item.showChange();
  }
  showBar();
  byId("settings-search").focus();
}

async function save() {
  const changed = fields.filter((item) => item.changed());
  const wrong = changed.filter((item) => !item.check());
  showBar();
  if (wrong.length) {
    reveal(wrong[0]);
    return;
  }
  await run(bar.save, async () => {
    try {
      const values = Object.fromEntries(changed.map((item) => [item.parameter.name, item.value()]));
      const answer = await patch("/parameters", { values });
      for (const item of changed) item.saved();
      say(answer.message || "Saved.");
    } catch (error) {
      showRefusal(changed, error);
    }
  });
  showBar();
}

function showRefusal(changed, error) {
  const named = changed.filter((item) => error.errors[item.parameter.name]);
  for (const item of named) item.refuse(error.errors[item.parameter.name]);
  if (named.length) reveal(named[0]);
  else warn(error.message);
}

function reveal(item) {
  byId("settings-search").value = "";
  search();
  item.control.focus();
}

function search() {
  const words = byId("settings-search").value.toLowerCase().split(/\s+/).filter((word) => word);
  let found = 0;
  for (const group of groups) {
    let any = false;
    for (const item of group.items) {
      const text = `${item.parameter.name} ${item.label} ${item.parameter.description || ""}`.toLowerCase();
      const fits = words.every((word) => text.includes(word));
      setHidden(item.element, !fits);
      any = any || fits;
      found += fits ? 1 : 0;
    }
    setHidden(group.element, !any);
  }
  setText(byId("settings-found"), words.length ? `${plural(found, "setting", "settings")} found.` : "");
}

function build(all) {
  // Connecting is a command of the decoder, not a setting.
  const own = all.filter((parameter) => parameter.name !== "Decoder.Connected");
  const titles = [...new Set(own.map((parameter) => groupOf(parameter.name)))];
  groups = titles.map((title) => makeGroup(title, own.filter((parameter) => groupOf(parameter.name) === title)));
  fields = groups.flatMap((group) => group.items);
  bar = makeBar();
  byId("settings-form").replaceChildren(h("div", { class: "groups" }, ...groups.map((group) => group.element)), bar.element);
  search();
}

// Reads the values again, unless there are changes that were not saved.
export async function showSettings() {
  if (loaded && fields.some((item) => item.changed())) return;
  try {
    build(await get("/parameters"));
    loaded = true;
  } catch (error) {
    byId("settings-form").replaceChildren(h("p", { class: "reason" }, error.message));
  }
}

export function startSettings() {
  byId("settings-search").addEventListener("input", search);
  byId("settings-form").addEventListener("submit", (event) => {
    event.preventDefault();
    save();
  });
  on("session", () => {
    loaded = false;
    fields = [];
  });
}
