// What is below the picture: lamp, name, what the decoder does, and how long the source is still shown. Also the
// connection's state in the page's head, and the facts of the section "State".

import { byId, sentence, setAttribute, setFacts, setHidden, setText } from "./dom.js";
import { clock, doing, duration, isPaused, plural, shownName } from "./words.js";
import { on, sourceAt, state } from "./store.js";

// The seconds that the source is still shown, now; null when it stays.
export function secondsLeft() {
  const { status } = state;
  if (!status || !status.connected || typeof status.secondsLeft !== "number" || isPaused(status)) return null;
  return Math.max(0, status.secondsLeft - (performance.now() - state.statusTime) / 1000);
}

function lampClass(text) {
  const colour = /red|amber|green/.exec(text)?.[0] || "off";
  return `lamp ${colour}${text.includes("blinking") ? " blinking" : ""}`;
}

function showCountdown() {
  const seconds = secondsLeft();
  const total = state.status?.displayTime || sourceAt(state.status?.currentSource)?.displayTime || 0;
  const lost = state.link.state !== "open";
  setHidden(byId("left"), seconds === null || lost);
  setText(byId("left"), seconds === null ? "" : `next in ${duration(seconds)}`);
  const share = seconds === null || lost || !total ? 0 : Math.min(1, seconds / total);
  byId("run-out-bar").style.transform = `scaleX(${share.toFixed(4)})`;
}

function showStatus(status) {
  const led = status.leds?.[0]?.text || "off";
  setAttribute(byId("lamp"), "class", lampClass(led));
  setAttribute(byId("lamp"), "aria-label", `Status lamp: ${led}`);
  setAttribute(byId("lamp"), "title", `Status lamp: ${led}`);
  setText(byId("shown-name"), shownName(status));
  setText(byId("shown-words"), sentence(doing(status)));
  byId("shown-words").classList.toggle("bad", Boolean(status.connected && status.error));
  if (status.decoder) setText(byId("decoder-name"), status.decoder);
  document.title = `${shownName(status)} – ${status.decoder || "Decoder"}`;
  showPending(status);
  showMachine(status);
  showCountdown();
}

function showPending(status) {
  setHidden(byId("pending"), !status.configurationChanged || !status.connected);
  const count = status.sourcesNotInForce || 0;
  const sources = count ? ` ${plural(count, "source is", "sources are")} new or changed.` : "";
  setText(byId("pending-text"),
          `The decoder still uses the settings of its last connect.${sources} To apply them, it connects again.`);
}

function showMachine(status) {
  const frame = status.frame;
  setFacts(byId("machine"), [
    ["Mode", status.mode === status.configuredMode ? status.mode : `${status.mode}, from the next connect ${status.configuredMode}`],
    ["Connection", status.connected ? "connected" : status.connectWanted ? "about to connect" : "disconnected"],
    ["Lamp", status.leds?.[0]?.text || "off"],
    ["On the screen", (status.osd || []).filter((text) => text).join(" · ")],
    ["Machine", status.machineState],
    ["Picture", frame ? `number ${frame.number}${frame.blank ? ", black" : ""}` : "none yet"],
    ["Shown since", status.shownSince ? clock(status.shownSince) : ""],
    ["Supervisor", status.supervisorPid > 0 ? `process ${status.supervisorPid}` : "none runs"],
    ["Version", status.version],
  ]);
}

const linkWords = { connecting: "Connecting …", open: "Live", lost: "Connection lost" };

function showLink(link) {
  setText(byId("link-text"), link.state === "lost" ? `Connection lost since ${clock(link.since)}` : linkWords[link.state]);
  setAttribute(byId("link-lamp"), "class", `lamp ${link.state === "open" ? "green" : link.state === "lost" ? "red" : "amber"}`);
  document.body.dataset.link = link.state;
  showCountdown();
}

export function startShown() {
  on("status", showStatus);
  on("sources", () => state.status && showCountdown());
  on("link", showLink);
  setInterval(() => document.visibilityState === "visible" && showCountdown(), 500);
}
