// One source in a dialog: what is known about it, why it is played as it is, and its settings.

import { h, icon, run, say, sentence, setAttribute, setFacts, setHidden, setText } from "./dom.js";
import { confirmDialog, openDialog, reasonLine } from "./dialogs.js";
import { duration, errorOf, kindWords, labelOf, warmWords } from "./words.js";
import { mayAct, on, sourceAt } from "./store.js";
import { get, patch, remove } from "./api.js";
import { ladder } from "./ladder.js";
import { ParameterField } from "./parameter_field.js";

let shown = null; // the open dialog: {index, update}

function facts(source) {
  const known = source.status || {};
  const rate = known.FrameRate ? `${known.FrameRate} pictures/s` : "";
  const bits = known.BitRate ? `${(Number(known.BitRate) / 1000).toFixed(1)} Mbit/s` : "";
  return [
    ["Sends", [kindWords(source), rate, bits].filter((word) => word).join(", ")],
    ["Model", source.model || known.Model],
    ["Over", known.Transport || known.ConnectMode],
    ["Sound", known.Audio === "yes" ? known.AudioFormat : known.Audio === "no" ? "none" : ""],
    ["Address", source.configured?.URL || source.address],
    ["Shown for", source.displayTime ? duration(source.displayTime) : ""],
    ["Still", known.Still],
    ["Warm", warmWords(source.warm)],
    ["Not applied yet", source.inForce === false ? (source.new ? "the whole source is new" : (source.changed || []).join(", ")) : ""],
  ];
}

// ---- Settings of the source --------------------------------------------------------------------------------------

// Its name and address are beside the other keys.
function valueOf(source, key) {
  const beside = { Name: source.name, Address: source.address };
  return beside[key] ?? source.configured?.[key] ?? "";
}

async function makeFields(source) {
  const keys = await get("/parameters?of=sources");
  return keys.map((parameter) => new ParameterField({ ...parameter, value: valueOf(source, parameter.name) },
                                                    labelOf(parameter.name)));
}

// A change of "name" renames the source in the configuration, too.
function changedValues(fields) {
  return Object.fromEntries(fields.filter((item) => item.changed())
    .map((item) => [item.parameter.name === "Name" ? "name" : item.parameter.name, item.value()]));
}

async function save(source, fields, reason, button) {
  const wrong = fields.filter((item) => !item.check());
  reason.show(wrong.length ? "Nothing is saved yet: some values are not right." : "");
  if (wrong.length) {
    wrong[0].control.focus();
    return;
  }
  const values = changedValues(fields);
  if (!Object.keys(values).length) {
    reason.show("Nothing has changed.");
    return;
  }
  await run(button, async () => {
    try {
      const answer = await patch(`/sources/${source.index}`, values);
      for (const item of fields) item.saved();
      say(answer.message || "Saved.");
    } catch (error) {
      for (const item of fields) {
        const why = error.errors[item.parameter.name];
        if (why) item.refuse(sentence(why));
      }
      reason.show(error.message);
    }
  });
}

function settings(source) {
  const box = h("div", { class: "source-settings" }, h("p", { class: "hint" }, "Reading …"));
  makeFields(source).then((fields) => {
    const reason = reasonLine();
    const button = h("button", { class: "primary" }, "Save");
    const form = h("form", { novalidate: true }, ...fields.map((item) => item.element), reason.element,
                   h("div", { class: "actions" }, button));
    form.addEventListener("submit", (event) => {
      event.preventDefault();
      save(source, fields, reason, button);
    });
    box.replaceChildren(form);
  }).catch((error) => box.replaceChildren(h("p", { class: "reason" }, error.message)));
  return box;
}

// A part that is made when it is opened for the first time.
function part(title, make) {
  const element = h("details", { class: "part" }, h("summary", {}, title));
  element.addEventListener("toggle", () => {
    if (element.open && element.children.length === 1) element.append(make());
  });
  return element;
}

async function removeSource(source, dialog, reason) {
  const agreed = await confirmDialog(`Remove ${source.name}?`, "Its settings are deleted. The camera itself is not changed.",
                                     "Remove");
  if (!agreed) return;
  try {
    say((await remove(`/sources/${source.index}`)).message || "Removed.");
    dialog.close();
  } catch (error) {
    reason.show(error.message);
  }
}

export function openSource(index) {
  const source = sourceAt(index);
  if (!source) return;
  const { dialog, body, heading } = openDialog(source.name, "side");
  const still = h("img", { class: "big-still", alt: `A still of ${source.name}`, hidden: true });
  still.addEventListener("load", () => setHidden(still, false));
  still.addEventListener("error", () => setHidden(still, true));
  const error = h("p", { class: "card-error big" }, icon("warning"), h("span"));
  const list = h("dl", { class: "facts" });
  const reason = reasonLine();
  body.append(still, error, list, part("Why it is played this way", () => ladder(index)));
  if (mayAct("admin")) {
    body.append(part("Settings of this source", () => settings(source)), reason.element,
                h("div", { class: "actions" },
                  h("button", { type: "button", class: "danger", onclick: () => removeSource(source, dialog, reason) }, "Remove this source")));
  }
  shown = { index, update: (now) => {
    setText(heading, now.name);
    setFacts(list, facts(now));
    setHidden(error, !errorOf(now));
    setText(error.lastElementChild, sentence(errorOf(now)));
    if (now.still) setAttribute(still, "src", now.still);
  } };
  shown.update(source);
  dialog.addEventListener("close", () => {
    shown = null;
  });
}

on("sources", () => {
  const source = shown && sourceAt(shown.index);
  if (source) shown.update(source);
});
