// The decoder's button, its commands and its sound.

import { h, icon, byId, run, say, setAttribute, setHidden, setText } from "./dom.js";
import { post } from "./api.js";
import { isPaused, pressEffect } from "./words.js";
import { openAlarm } from "./alarm.js";
import { on, state } from "./store.js";

const holdTime = 1000; // milliseconds: as long as the decoder's own button

async function command(button, path, body) {
  const answer = await run(button, () => post(path, body));
  if (answer) say(answer.message || "Done.");
  return answer;
}

// ---- The button: a short press and a hold ---------------------------------------------------------------------

function makeButton() {
  const effect = h("span", { class: "press-effect" });
  const button = h("button", { type: "button", class: "press", id: "button" },
                   h("span", { class: "press-ring", "aria-hidden": "true" }, icon("pause")),
                   h("span", { class: "press-words" }, h("span", { class: "press-name" }, "Button"), effect,
                     h("span", { class: "press-hold" }, "Hold for a second: disconnects")));
  let timer = 0;
  let down = false;
  const begin = () => {
    if (down) return;
    down = true;
    button.classList.add("down");
    timer = setTimeout(() => end(true), holdTime);
  };
  const end = (held) => {
    if (!down) return;
    down = false;
    clearTimeout(timer);
    button.classList.remove("down");
    command(button, "/button", { hold: held });
  };
  const cancel = () => {
    down = false;
    clearTimeout(timer);
    button.classList.remove("down");
  };
  button.addEventListener("pointerdown", (event) => {
    if (event.button !== 0) return;
    button.setPointerCapture(event.pointerId);
    begin();
  });
  button.addEventListener("pointerup", () => end(false));
  button.addEventListener("pointercancel", cancel);
  button.addEventListener("contextmenu", (event) => event.preventDefault()); // a long touch
  const isKey = (event) => event.key === " " || event.key === "Enter";
  button.addEventListener("keydown", (event) => {
    if (!isKey(event)) return;
    event.preventDefault();
    if (!event.repeat) begin();
  });
  button.addEventListener("keyup", (event) => {
    if (!isKey(event)) return;
    event.preventDefault();
    end(false);
  });
  button.addEventListener("blur", cancel);
  // A screen reader's click has neither pointer nor key events.
  button.addEventListener("click", (event) => event.detail === 0 && !down && event.isTrusted && begin() === undefined && end(false));
  return { button, effect };
}

// ---- Commands --------------------------------------------------------------------------------------------------

function makeCommand(name, symbol, path, hint) {
  const label = h("span", {}, name);
  const mark = icon(symbol);
  const button = h("button", { type: "button", title: hint, onclick: () => command(button, path) }, mark, label);
  return button;
}

function makeToggle(id, onclick) {
  const mark = h("span", { "aria-hidden": "true" });
  const label = h("span");
  const button = h("button", { type: "button", id, onclick }, mark, label);
  return { button, show: (symbol, name) => {
    setAttribute(mark, "class", `icon i-${symbol}`);
    setText(label, name);
  } };
}

function makeSound() {
  const words = h("output", { class: "volume-words", for: "volume" });
  const range = h("input", { type: "range", min: 0, max: 100, step: 5, id: "volume", "aria-label": "Volume" });
  range.addEventListener("input", () => setText(words, `${range.value} %`));
  range.addEventListener("change", () => command(range, "/volume", { percent: Number(range.value) }));
  const mute = makeToggle("mute", () => command(mute.button, "/mute", { muted: !state.status?.sound?.muted }));
  const element = h("div", { class: "sound", role: "group", "aria-label": "Sound" }, mute.button, range, words);
  return { element, range, words, mute };
}

function showSound(sound, status) {
  const known = status.sound;
  setHidden(sound.element, !known);
  if (!known) return;
  sound.mute.show(known.muted ? "muted" : "sound", known.muted ? "Sound on" : "Mute");
  if (document.activeElement !== sound.range) sound.range.value = known.volume;
  setText(sound.words, known.muted ? "muted" : `${sound.range.value} %`);
}

export function startControls() {
  const press = makeButton();
  const connect = makeToggle("connect", () => {
    command(connect.button, state.status?.connectWanted ? "/disconnect" : "/connect");
  });
  const alarm = h("button", { type: "button", id: "alarm", onclick: openAlarm }, icon("bell"), h("span", {}, "Test alarm …"));
  const sound = makeSound();
  byId("controls-body").append(
    press.button,
    h("div", { class: "commands" }, connect.button,
      makeCommand("Lock", "lock", "/lock", "Plays nothing for ten seconds"),
      makeCommand("Reconnect", "retry", "/reconnect", "Ends a lock early"),
      makeCommand("Detect again", "search", "/flush", "Forgets what was detected, and asks every encoder again"), alarm),
    sound.element);
  byId("apply").addEventListener("click", () => command(byId("apply"), "/apply"));
  on("status", (status) => {
    setText(press.effect, `Press: ${pressEffect(status).toLowerCase()}`);
    const symbol = !status.connected ? "power" : status.mode !== "auto" ? "next" : isPaused(status) ? "play" : "pause";
    setAttribute(press.button.querySelector(".icon"), "class", `icon i-${symbol}`);
    connect.show("power", status.connectWanted ? "Disconnect" : "Connect");
    showSound(sound, status);
  });
}
