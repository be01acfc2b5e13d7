// The sources as cards, in their order. A card is kept for its place in the list and gets new texts when something
// changes, so that the focus stays where it is.

import { h, icon, byId, run, say, sentence, setAttribute, setHidden, setText } from "./dom.js";
import { errorOf, kindWords, duration } from "./words.js";
import { mayAct, on, set, state } from "./store.js";
import { openAdd } from "./add.js";
import { openSource } from "./source.js";
import { Ordering } from "./order.js";
import { post } from "./api.js";

const cards = [];
let ordering = null;

function makeCard(place) {
  const card = { place, source: null, asked: 0 };
  card.still = h("img", { alt: "", loading: "lazy", decoding: "async", width: 160, height: 90 });
  card.noStill = icon("camera");
  card.badge = h("span", { class: "badge", hidden: true }, "Shown");
  card.name = h("h3", { class: "card-name" });
  card.kind = h("p", { class: "card-kind" });
  card.model = h("p", { class: "card-kind" });
  card.error = h("p", { class: "card-error", hidden: true });
  card.errorText = h("span");
  card.error.append(icon("warning"), card.errorText);
  card.chips = h("p", { class: "chips" });
  card.show = h("button", { type: "button", class: "show stretched", onclick: () => select(card) }, "Show");
  card.details = h("button", { type: "button", class: "quiet square", onclick: () => openSource(card.source.index) }, icon("more"));
  card.handle = h("button", { type: "button", class: "quiet square handle", "aria-describedby": "order-help" }, icon("handle"));
  card.element = h("li", { class: "source" }, card.handle,
                   h("div", { class: "still" }, card.noStill, card.still, card.badge),
                   h("div", { class: "card-words" }, card.name, card.kind, card.model, card.error, card.chips),
                   h("div", { class: "card-actions" }, card.show, card.details));
  card.still.addEventListener("error", () => setHidden(card.still, true));
  ordering.attach(card.handle, place);
  return card;
}

// The card waits until the decoder shows its source; it says so and does not wait for ever.
async function select(card) {
  const { index, name } = card.source;
  const answer = await run(card.show, () => post("/select", { source: index }));
  if (!answer) return;
  say(answer.message || `Selected ${name}.`);
  if (state.status?.currentSource === index) return;
  card.asked = performance.now();
  showCard(card, card.source);
  setTimeout(() => showCard(card, card.source), 5100);
}

// What is unusual about a source.
function chipsOf(source) {
  const mode = state.status?.mode;
  const chips = [];
  if (mode === "auto" && source.autoEnabled === false) chips.push("not in the sequence");
  if (mode === "manual" && source.manualEnabled === false) chips.push("not with the button");
  if (source.inForce === false) chips.push(source.new ? "new, not applied yet" : "changed, not applied yet");
  return chips;
}

// "10 s · H.264, 1920x1080"
function lineOf(source) {
  const time = state.status?.mode === "auto" && source.displayTime ? duration(source.displayTime) : "";
  return [time, kindWords(source)].filter((word) => word).join(" · ");
}

function showStill(card, source) {
  if (!source.still) {
    setHidden(card.still, true);
    card.still.removeAttribute("src");
  } else if (card.still.getAttribute("src") !== source.still) {
    card.still.src = source.still;
    setHidden(card.still, false); // a hidden picture that is loaded lazily is never loaded
  }
}

function showCard(card, source) {
  card.source = source;
  const current = state.status?.currentSource === source.index && state.status?.connected;
  const waits = !current && card.asked > 0 && performance.now() - card.asked < 5000;
  if (!waits) card.asked = 0;
  card.element.classList.toggle("current", Boolean(current));
  setAttribute(card.element, "aria-current", current ? "true" : null);
  setAttribute(card.element, "data-index", source.index);
  setText(card.name, source.name);
  setText(card.kind, lineOf(source));
  setText(card.model, source.model);
  setHidden(card.model, !source.model);
  setText(card.errorText, sentence(errorOf(source)));
  setHidden(card.error, !errorOf(source));
  setHidden(card.badge, !current);
  const chips = chipsOf(source);
  if (card.chips.dataset.chips !== chips.join("\n")) {
    card.chips.dataset.chips = chips.join("\n");
    card.chips.replaceChildren(...chips.map((chip) => h("span", { class: "chip" }, chip)));
  }
  showStill(card, source);
  showButtons(card, source, current, waits);
}

function showButtons(card, source, current, waits) {
  setHidden(card.show, !mayAct("operator"));
  setText(card.show, waits ? "Wait …" : current ? "Shown" : "Show");
  setAttribute(card.show, "aria-label", `${current ? "Shown now" : "Show"}: ${source.name}`);
  setAttribute(card.show, "aria-pressed", current ? "true" : "false");
  setAttribute(card.details, "aria-label", `Details of ${source.name}`);
  card.details.classList.toggle("stretched", !mayAct("operator"));
  setHidden(card.handle, !mayAct("admin") || state.sources.length < 2);
  setAttribute(card.handle, "aria-label", `Move ${source.name}`);
  setAttribute(card.handle, "aria-pressed", ordering.held === card.place ? "true" : "false");
  card.element.classList.toggle("held", ordering.held === card.place);
}

export function showSources() {
  const sources = ordering.arranged(state.sources);
  while (cards.length > sources.length) cards.pop().element.remove();
  while (cards.length < sources.length) {
    const card = makeCard(cards.length);
    cards.push(card);
    byId("cards").append(card.element);
  }
  sources.forEach((source, place) => showCard(cards[place], source));
  setAttribute(byId("cards"), "aria-busy", ordering.saving ? "true" : null);
  setHidden(byId("no-sources"), sources.length > 0 || state.status === null);
}

// The list is taken over at once; the decoder's own comes a moment later.
async function saveOrder(order) {
  const before = state.sources;
  const answer = await post("/sources/order", { order });
  if (state.sources === before) set("sources", order.map((old, index) => ({ ...before[old], index })));
  return answer;
}

export function startSources() {
  ordering = new Ordering({
    count: () => cards.length,
    nameAt: (place) => cards[place].source.name,
    elementAt: (place) => cards[place].element,
    focusAt: (place) => cards[place].handle.focus(),
    changed: showSources,
    save: saveOrder,
  });
  byId("add-source").addEventListener("click", openAdd);
  on("sources", showSources);
  on("status", showSources);
  on("session", showSources);
}
