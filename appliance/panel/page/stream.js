// The decoder's events: one connection for all tabs of the browser. The leading tab (elect.js) receives them and hands
// them to the others through a BroadcastChannel. A tab that is opened later asks it for what it has.
//
// The decoder sends a sign of life every 15 seconds. A connection that is silent for longer than `silence` is opened
// again, and a leading tab that is silent for so long is replaced.

import { elect } from "./elect.js";

const silence = 45000; // milliseconds
const types = ["session", "status", "sources", "fleet", "picture", "change", "journal", "beat"];
const kept = new Set(["status", "sources", "fleet", "picture", "journal"]); // the newest of them is for tabs that come later
const longestWait = 5000; // milliseconds between two attempts

// null: this browser's tabs can't talk to each other, so each has a connection (elect.js).
const channel = "BroadcastChannel" in window ? new BroadcastChannel("decoder-panel") : null;
const tell = (message) => channel?.postMessage(message);
const latest = new Map();
let source = null; // the EventSource of a leading tab
let leading = false;
let stopped = false;
let retry = 0;
let wait = 500;
let link = { state: "connecting", since: null };
let lastSign = performance.now();
let election = null;
let deliver = () => {};
let tellLink = () => {};

function setLink(state) {
  if (link.state === state) return;
  link = { state, since: state === "lost" ? Date.now() : null };
  tellLink(link);
  if (leading) tell({ kind: "link", link });
}

function receive(type, text) {
  lastSign = performance.now();
  let data;
  try {
    data = JSON.parse(text || "null");
  } catch {
    return; // a damaged event is left out; the next one has everything
  }
  if (kept.has(type)) latest.set(type, data);
  tell({ kind: "event", type, data });
  deliver(type, data);
}

function close() {
  clearTimeout(retry);
  if (source) source.close();
  source = null;
}

function again() {
  close();
  setLink("lost");
  retry = setTimeout(open, wait);
  wait = Math.min(longestWait, wait * 2);
}

function open() {
  close();
  if (stopped) return;
  lastSign = performance.now();
  source = new EventSource("/api/v1/events");
  source.onopen = () => {
    wait = 500;
    setLink("open");
  };
  // The browser's own attempts stop at some answers. Ours go on, and the page asks whether the session still is valid.
  source.onerror = () => {
    again();
    deliver("broken", null);
  };
  for (const type of types) source.addEventListener(type, (event) => receive(type, event.data));
}

function lead() {
  leading = true;
  open();
}

function stopLeading() {
  leading = false;
  close();
}

// What other tabs say.
channel?.addEventListener("message", hear);
function hear({ data }) {
  if (data.kind === "hello" && leading) {
    tell({ kind: "all", events: [...latest], link });
    return;
  }
  if (data.kind === "session") deliver("session", null);
  if (leading || stopped) return;
  if (data.kind === "event" || data.kind === "all") lastSign = performance.now();
  if (data.kind === "event") deliver(data.type, data.data);
  if (data.kind === "link" || data.kind === "all") {
    link = data.link;
    tellLink(link);
  }
  if (data.kind === "all") for (const [type, value] of data.events) deliver(type, value);
}

function watch() {
  if (stopped || performance.now() - lastSign < silence) return;
  lastSign = performance.now();
  if (leading) again();
  else if (document.visibilityState === "visible") election.steal();
}

// onEvent(type, data) gets the events, and "broken" when the connection broke; onLink({state, since}) its state.
export function startStream(onEvent, onLink) {
  deliver = onEvent;
  tellLink = onLink;
  stopped = false;
  if (election) {
    if (leading) open();
    else tell({ kind: "hello" });
    return;
  }
  election = elect(channel, lead, stopLeading);
  tell({ kind: "hello" });
  setInterval(watch, 5000);
  addEventListener("online", () => leading && !stopped && open());
  addEventListener("pagehide", () => election.leave());
  addEventListener("pageshow", (event) => event.persisted && location.reload());
}

// The session has ended.
export function stopStream() {
  stopped = true;
  latest.clear();
  close();
  link = { state: "connecting", since: null };
}

// Tells the browser's other tabs that somebody has logged in or out: they ask for the session again.
export function tellOtherTabs() {
  tell({ kind: "session" });
}
