// What happened, and the decoder's log: live, with a pause and a filter.

import { h, byId, setHidden, setText } from "./dom.js";
import { changeWords, clock, plural } from "./words.js";
import { addTo, mayAct, on, set, state } from "./store.js";
import { get } from "./api.js";

const mostChanges = 60;
const mostLines = 500;
const mostShown = 200;
const levels = ["emergency", "alert", "critical", "error", "warning", "notice", "information", "debug"];
let paused = null; // the lines at the moment of the pause; null: it is live

export function addChange(change) {
  const words = changeWords(change);
  if (words) addTo("changes", [{ time: change.time, words }], mostChanges);
}

export function addJournal(data) {
  addTo("journal", Array.isArray(data) ? data : data.lines || [data], mostLines);
}

// The lines from before this page was opened. Without them the log begins now.
async function readEarlier() {
  if (!mayAct("operator")) return;
  try {
    const lines = await get("/journal?lines=200");
    set("journal", lines.reverse());
  } catch {
    // The log begins now: it says itself how many lines it has.
  }
}

function visible() {
  return document.visibilityState === "visible" && !byId("journal").hidden;
}

const timeOf = (time) => h("time", { datetime: time, class: "when" }, time ? clock(time) : "");

function showChanges() {
  if (!visible()) return;
  byId("changes").replaceChildren(...state.changes.map((change) => h("li", {}, timeOf(change.time), h("span", {}, change.words))));
  setHidden(byId("no-changes"), state.changes.length > 0);
}

const levelOf = (line) => (typeof line.level === "number" ? line.level : Math.max(0, levels.indexOf(line.level)));

function lineElement(line) {
  const level = levelOf(line);
  const kind = level <= 3 ? "bad" : level === 4 ? "warn" : "";
  return h("li", { class: kind }, timeOf(line.time), h("span", { class: "program" }, line.program),
           h("span", { class: "line" }, kind && h("span", { class: "level" }, levels[level]), line.text));
}

function showLog() {
  if (!visible()) return;
  const words = byId("log-search").value.toLowerCase();
  const least = Number(byId("log-level").value);
  const lines = (paused || state.journal).filter((line) => levelOf(line) <= least &&
    (!words || `${line.program} ${line.text}`.toLowerCase().includes(words)));
  byId("log").replaceChildren(...lines.slice(0, mostShown).map(lineElement));
  const missed = paused ? state.journal.indexOf(paused[0]) : 0;
  const more = paused ? ` Paused; ${plural(Math.max(0, missed), "new line waits", "new lines wait")}.` : "";
  setText(byId("log-found"), `${plural(lines.length, "line", "lines")}.${more}`);
}

let planned = 0;
// A burst of lines is drawn once.
function showSoon() {
  planned = planned || requestAnimationFrame(() => {
    planned = 0;
    showLog();
  });
}

function togglePause() {
  paused = paused ? null : state.journal;
  byId("log-pause").setAttribute("aria-pressed", String(paused !== null));
  setText(byId("log-pause"), paused ? "Continue" : "Pause");
  showLog();
}

export function showJournal() {
  showChanges();
  showLog();
}

export function startJournal() {
  on("changes", showChanges);
  on("journal", showSoon);
  on("link", (link) => link.state === "open" && readEarlier());
  byId("log-pause").addEventListener("click", togglePause);
  byId("log-search").addEventListener("input", showLog);
  byId("log-level").addEventListener("change", showLog);
  document.addEventListener("visibilitychange", showJournal);
}
