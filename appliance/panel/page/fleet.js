// All decoders of the site: who is there, what each shows, and commands to those that the filter leaves. A row is kept for
// its decoder and gets new texts when something changes, so that the focus stays and hundreds of rows cost little.

import { h, byId, run, say, sentence, setAttribute, setHidden, setText, warn } from "./dom.js";
import { on, state } from "./store.js";
import { plural } from "./words.js";
import { post } from "./api.js";

const rows = new Map(); // by the decoder's name

const brokerOf = () => state.fleet?.broker || { state: "connecting" };
const decoders = () => state.fleet?.decoders || [];

// Whether there is a site to show; before the first event it may be.
export function hasFleet() {
  return brokerOf().state !== "none";
}

// ---- Words -----------------------------------------------------------------------------------------------------

// "14:05" today, otherwise "3 Nov, 14:05"
function moment(seconds) {
  if (!seconds) return "";
  const time = new Date(seconds * 1000);
  const date = time.toDateString() === new Date().toDateString() ? {} : { day: "numeric", month: "short" };
  return time.toLocaleString([], { ...date, hour: "2-digit", minute: "2-digit", hourCycle: "h23" });
}

function presenceWords(decoder) {
  const time = moment(decoder.since);
  if (decoder.online) return time ? `online since ${time}` : "online";
  if (decoder.lost) return time ? `lost, last seen ${time}` : "lost";
  return time ? `offline since ${time}` : "offline";
}

function shownWords(decoder) {
  if (!decoder.online) return "";
  if (!decoder.running) return "no decoder is running";
  if (decoder.alarm) return `${decoder.source || "alarm"}: ${decoder.alarm}`;
  if (decoder.source) return decoder.source;
  return decoder.connected ? "no source" : "disconnected";
}

const errorWords = (decoder) => (decoder.online && decoder.error ? sentence(decoder.error.text) : "");

function lampClass(decoder) {
  if (!decoder.online) return "lamp red";
  return errorWords(decoder) || !decoder.running ? "lamp amber" : "lamp green";
}

// ---- Filter ----------------------------------------------------------------------------------------------------

const filter = () => ({ words: byId("fleet-search").value.trim().toLowerCase(), group: byId("fleet-group").value });

function wanted() {
  const { words, group } = filter();
  return decoders().filter((decoder) => (!group || decoder.groups.includes(group)) && (!words ||
    [decoder.name, presenceWords(decoder), shownWords(decoder), errorWords(decoder)].join("\n").toLowerCase().includes(words)));
}

// Changes the options only when they differ, and keeps the choice.
function setOptions(select, options) {
  const key = JSON.stringify(options);
  if (select.dataset.options === key) return;
  const chosen = select.value;
  select.dataset.options = key;
  select.replaceChildren(...options.map(([value, text]) => h("option", { value }, text)));
  if (options.some(([value]) => value === chosen)) select.value = chosen;
}

const sorted = (names) => [...new Set(names)].sort((one, other) => one.localeCompare(other));

// ---- Rows ------------------------------------------------------------------------------------------------------

function makeRow() {
  const row = { lamp: h("span", { "aria-hidden": "true" }), name: h("span"), link: h("a", { target: "_blank", rel: "noopener noreferrer" }),
                presence: h("p", { class: "fleet-presence" }), groups: h("p", { class: "chips" }), shown: h("p", { class: "fleet-shown" }),
                error: h("p", { class: "reason" }) };
  row.element = h("li", {}, row.lamp, h("div", { class: "fleet-name" }, h("h3", {}, row.name, row.link), row.groups),
                  row.presence, h("div", { class: "fleet-shows" }, row.shown, row.error));
  return row;
}

function showRow(row, decoder) {
  setAttribute(row.lamp, "class", lampClass(decoder));
  setHidden(row.name, Boolean(decoder.panel));
  setHidden(row.link, !decoder.panel);
  setText(row.name, decoder.name);
  setText(row.link, decoder.name);
  setAttribute(row.link, "href", decoder.panel && /^https?:/.test(decoder.panel) ? decoder.panel : null);
  setText(row.presence, presenceWords(decoder));
  setText(row.shown, shownWords(decoder));
  setText(row.error, errorWords(decoder));
  const groups = decoder.groups.join("\n");
  if (row.groups.dataset.groups !== groups) {
    row.groups.dataset.groups = groups;
    row.groups.replaceChildren(...decoder.groups.map((group) => h("span", { class: "chip" }, group)));
  }
}

function showRows(list) {
  const names = new Set(list.map((decoder) => decoder.name));
  for (const [name, row] of rows) {
    if (names.has(name)) continue;
    row.element.remove();
    rows.delete(name);
  }
  const all = byId("fleet-rows");
  list.forEach((decoder, place) => {
    if (!rows.has(decoder.name)) rows.set(decoder.name, makeRow());
    const row = rows.get(decoder.name);
    showRow(row, decoder);
    if (all.children[place] !== row.element) all.insertBefore(row.element, all.children[place] || null);
  });
}

export function showFleet() {
  setHidden(byId("fleet-tab"), !state.fleet || !hasFleet());
  if (byId("fleet").hidden) return;
  setOptions(byId("fleet-group"), [["", "all"], ...sorted(decoders().flatMap((decoder) => decoder.groups)).map((name) => [name, name])]);
  const list = wanted();
  const online = list.filter((decoder) => decoder.online).length;
  setOptions(byId("fleet-source"), sorted(list.flatMap((decoder) => decoder.sources)).map((name) => [name, name]));
  setText(byId("fleet-found"), `${plural(list.length, "decoder", "decoders")}, ${online} online`);
  setText(byId("fleet-select"), list.length === 1 ? `Show on ${list[0].name}` : `Show on all ${list.length}`);
  const broker = brokerOf();
  setText(byId("fleet-broker"), broker.state === "lost"
    ? `${sentence(broker.reason || "no connection to the broker")}, since ${moment(broker.since)}. The list shows what was known then.` : "");
  const able = list.length > 0 && broker.state === "connected" && byId("fleet-source").value !== "";
  for (const id of ["fleet-select", "fleet-alarm"]) byId(id).disabled = !able;
  showRows(list);
  setHidden(byId("no-fleet"), list.length > 0);
}

// ---- Commands --------------------------------------------------------------------------------------------------

// Those that the filter leaves: all, a group, or names.
function whom() {
  const { words, group } = filter();
  if (words) return { decoders: wanted().map((decoder) => decoder.name) };
  return group ? { group } : {};
}

function command(button, path, more) {
  return run(button, async () => {
    byId("fleet-result").replaceChildren();
    const answer = await post(path, { source: byId("fleet-source").value, ...whom(), ...more });
    const failed = answer.decoders.filter((decoder) => !decoder.done);
    byId("fleet-result").replaceChildren(...failed.map((decoder) => h("li", {}, `${decoder.name}: ${decoder.text}`)));
    if (failed.some((decoder) => decoder.online)) warn(answer.message);
    else say(answer.message);
  });
}

export function startFleet() {
  on("fleet", showFleet);
  const choose = () => {
    byId("fleet-result").replaceChildren();
    showFleet();
  };
  byId("fleet-search").addEventListener("input", choose);
  byId("fleet-group").addEventListener("change", choose);
  byId("fleet-form").addEventListener("submit", (event) => {
    event.preventDefault();
    command(byId("fleet-select"), "/fleet/select", {});
  });
  byId("fleet-alarm").addEventListener("click", () => command(byId("fleet-alarm"), "/fleet/alarm", { text: byId("fleet-text").value }));
  byId("fleet-text").addEventListener("keydown", (event) => {
    if (event.key !== "Enter") return;
    event.preventDefault();
    byId("fleet-alarm").click();
  });
}
