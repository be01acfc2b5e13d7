// The front panel's page: who is logged in, which view is open, and the events that the other modules show.

import { byId, clearWords, run, say, setHidden, setText } from "./dom.js";
import { call, get, onSessionEnd } from "./api.js";
import { addChange, addJournal, showJournal, startJournal } from "./journal.js";
import { hasFleet, showFleet, startFleet } from "./fleet.js";
import { mayAct, on, set, state } from "./store.js";
import { showSettings, startSettings } from "./parameters.js";
import { startStream, stopStream, tellOtherTabs } from "./stream.js";
import { accountWords } from "./words.js";
import { startControls } from "./controls.js";
import { allowPictures, startPicture, viewPicture } from "./picture.js";
import { startShown } from "./shown.js";
import { startSources } from "./sources.js";

const views = ["live", "fleet", "settings", "journal"];

// ---- Views -----------------------------------------------------------------------------------------------------

function viewOfAddress() {
  const wanted = location.hash.slice(1);
  if (!views.includes(wanted) || (wanted === "fleet" && !hasFleet())) return "live";
  return wanted === "settings" && !mayAct("operator") ? "live" : wanted;
}

function openView(name) {
  document.body.dataset.view = name;
  for (const view of views) setHidden(byId(view), view !== name);
  setHidden(byId("log-in"), name !== "log-in");
  setHidden(byId("starting"), name !== "starting");
  const inside = views.includes(name);
  for (const id of ["tabs", "account", "link"]) setHidden(byId(id), !inside);
  for (const tab of byId("tabs").children) {
    if (tab.hash === `#${name}`) tab.setAttribute("aria-current", "page");
    else tab.removeAttribute("aria-current");
  }
  viewPicture(name === "live");
  if (name === "settings") showSettings();
  if (name === "journal") showJournal();
  if (name === "fleet") showFleet();
}

// Hides what the role may not use.
function applyRole() {
  for (const element of document.querySelectorAll("[data-least]")) setHidden(element, !mayAct(element.dataset.least));
  setText(byId("account-name"), accountWords(state.session));
}

// ---- Session ---------------------------------------------------------------------------------------------------

function askForLogIn(reason) {
  stopStream();
  set("session", { user: "", role: "none" });
  setText(byId("log-in-reason"), reason);
  openView("log-in");
  byId("log-in-form").elements.user.focus();
}

function enter(session) {
  set("session", session);
  applyRole();
  clearWords();
  openView(viewOfAddress());
  startStream(receive, (link) => set("link", link));
}

let wasInside = false;
let asking = null;

// Asks who is logged in, and opens what fits. Several questions at a time are one.
function checkSession(reason = "") {
  asking = asking || ask(reason).finally(() => {
    asking = null;
  });
  return asking;
}

async function ask(reason) {
  let session;
  try {
    session = await get("/session");
  } catch {
    if (!wasInside) setTimeout(checkSession, 2000); // the page itself came, so the decoder is back soon
    return;
  }
  if (session.role === "none" || !session.role) {
    if (document.body.dataset.view !== "log-in") askForLogIn(wasInside ? reason || "Your session has ended. Log in again." : "");
    wasInside = false;
    return;
  }
  const changed = session.role !== state.session.role || session.user !== state.session.user;
  wasInside = true;
  if (changed) enter(session);
}

function refusal(error) {
  if (error.status !== 429) return error.message;
  return error.retryAfter ? `${error.message} Try again in ${error.retryAfter} seconds.` : error.message;
}

async function logIn(event) {
  event.preventDefault();
  const form = byId("log-in-form");
  const { user, password } = Object.fromEntries(new FormData(form));
  setText(byId("log-in-reason"), "");
  await run(byId("log-in-button"), async () => {
    try {
      await call("POST", "/login", { user, password });
    } catch (error) {
      setText(byId("log-in-reason"), refusal(error));
      form.elements.password.value = "";
      form.elements.password.focus();
      return;
    }
    form.reset();
    await checkSession();
    tellOtherTabs();
    byId("main").focus();
  });
}

async function logOut() {
  allowPictures(false);
  await run(byId("log-out"), async () => {
    await call("POST", "/logout", {});
    wasInside = false;
    askForLogIn("You are logged out.");
    tellOtherTabs();
  });
}

// ---- Events ----------------------------------------------------------------------------------------------------

let lost = false;

function receive(type, data) {
  switch (type) {
  case "status": return set("status", data);
  case "sources": return set("sources", data.sources || data);
  case "fleet": return set("fleet", data);
  case "picture": return set("picture", data);
  case "change": return addChange(data);
  case "journal": return addJournal(data);
  case "session": // it has ended, or the role is another one
  case "broken": return checkSession();
  default: return undefined;
  }
}

function start() {
  startPicture();
  startShown();
  startControls();
  startSources();
  startSettings();
  startJournal();
  startFleet();
  on("fleet", () => document.body.dataset.view === "fleet" && !hasFleet() && openView("live"));
  on("link", (link) => {
    if (link.state === "open" && lost) say("The connection is back.");
    if (link.state === "lost" && !lost) say("The connection to the decoder is lost. The page tries again.");
    lost = link.state === "lost" || (lost && link.state !== "open");
  });
  onSessionEnd(() => checkSession());
  byId("log-in-form").addEventListener("submit", logIn);
  byId("log-out").addEventListener("click", logOut);
  addEventListener("hashchange", () => {
    if (!mayAct("viewer")) return;
    openView(viewOfAddress());
    byId("main").focus({ preventScroll: true });
    scrollTo(0, 0);
  });
  openView("starting");
  checkSession();
}

start();
