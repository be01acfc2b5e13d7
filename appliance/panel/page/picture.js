// The live picture. The next one is fetched only when the last one is shown, so a slow connection leaves pictures out
// and never falls behind. While another view or another tab is open, none is fetched. The browser decodes the picture in
// another thread, and the canvas gets it as a bitmap.

import { byId, setAttribute, setHidden, setText } from "./dom.js";
import { clock, duration } from "./words.js";
import { on, state } from "./store.js";

const canvas = byId("picture");
const context = canvas.getContext("bitmaprenderer");
let wanted = null; // the newest picture that has not been fetched
let fetching = false;
let request = null; // of the picture that is fetched now
let shownAny = false;

const nextFrame = () => new Promise((resolve) => {
  requestAnimationFrame(resolve);
});
const pause = (milliseconds) => new Promise((resolve) => {
  setTimeout(resolve, milliseconds);
});

async function show(picture) {
  request = new AbortController();
  const late = setTimeout(() => request.abort(), 10000);
  const answer = await fetch(picture.url, { credentials: "same-origin", signal: request.signal })
    .finally(() => clearTimeout(late));
  if (!answer.ok) throw new Error(answer.statusText);
  const bitmap = await createImageBitmap(await answer.blob());
  context.transferFromImageBitmap(bitmap);
  setAttribute(canvas, "data-number", picture.number);
  if (!shownAny) {
    shownAny = true;
    veil();
  }
  await nextFrame();
}

let viewed = false; // the view with the picture is open

const isSeen = () => viewed && document.visibilityState === "visible";

async function showNewest() {
  if (fetching) return;
  fetching = true;
  while (wanted && isSeen()) {
    const picture = wanted;
    wanted = null;
    try {
      await show(picture);
    } catch {
      wanted = wanted || (allowed && state.link.state === "open" ? picture : null);
      await pause(1000);
    }
  }
  fetching = false;
}

// Why the picture is not the monitor's picture of this moment; "" when it is.
function notLive() {
  const { link, status } = state;
  if (link.state === "lost") {
    const lost = (Date.now() - link.since) / 1000;
    return `Not live. The connection was lost at ${clock(link.since)}, ${duration(lost)} ago.`;
  }
  if (link.state === "connecting" || !status) return "Connecting …";
  if (status.supervisorPid < 0) return "Not live. No decoder is running.";
  return shownAny ? "" : "Waiting for the first picture …";
}

function veil() {
  const words = notLive();
  const element = byId("veil");
  setHidden(element, !words);
  setText(element, words);
  byId("screen").classList.toggle("stale", Boolean(words));
}

// Whether somebody is logged in. Without, the decoder gives no pictures.
let allowed = false;

export function allowPictures(yes) {
  allowed = yes;
  if (yes) return;
  wanted = null;
  request?.abort();
}

// Somebody looks again: the newest picture is shown at once.
function lookAgain() {
  if (!isSeen()) return;
  wanted = wanted || (allowed ? state.picture : null);
  showNewest();
}

// Whether the view with the picture is open.
export function viewPicture(open) {
  viewed = open;
  lookAgain();
}

export function startPicture() {
  on("picture", (picture) => {
    if (!allowed) return;
    wanted = picture;
    showNewest();
  });
  on("session", (session) => allowPictures(session.role !== "none"));
  on("link", veil);
  on("status", (status) => {
    veil();
    const name = status?.sourceName;
    setAttribute(canvas, "aria-label", name ? `The monitor's picture: ${name}` : "The monitor's picture");
  });
  document.addEventListener("visibilitychange", lookAgain);
  setInterval(() => state.link.state === "lost" && veil(), 1000);
  veil();
}
