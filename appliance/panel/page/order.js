// Changing the order of the sources: by dragging, by tapping or clicking one handle and then another, or with the keyboard.
// While a source is held, the list shows the new order; the decoder gets it when the source is put down.

import { say, warn } from "./dom.js";

const dragBegins = 6; // pixels; a shorter way is a tap
const edge = 56; // pixels from the upper and lower end of what is seen, where the list scrolls on
const fastest = 14; // pixels a frame

// What scrolls when a card is dragged to the edge, and between which heights it is seen.
function scrollerOf(element) {
  const part = element.closest(".sources");
  if (part.scrollHeight > part.clientHeight && getComputedStyle(part).overflowY === "auto") {
    const { top, bottom } = part.getBoundingClientRect();
    return { element: part, top, bottom: Math.min(bottom, innerHeight) };
  }
  const tabs = document.getElementById("tabs").getBoundingClientRect(); // at the bottom of a telephone
  return { element: document.scrollingElement, top: document.querySelector(".top").offsetHeight,
           bottom: tabs.top > innerHeight / 2 ? tabs.top : innerHeight };
}

export class Ordering {
  // `list`: count(), nameAt(place), elementAt(place), focusAt(place), changed() to draw the list again, and
  // save(order), which sends the indices of the sources in their new order, and takes it over.
  constructor(list) {
    this.list = list;
    this.held = -1; // the place of the source that is held; -1: none
    this.order = null; // indices into the decoder's list, while a source is held and until the decoder has it
    this.drag = null; // { x, y, at, grip, moved } while a pointer holds it: where it began and is now, inside of the card
    this.shifted = null; // the card that is shown beside its place
  }

  // The sources in the order in which they are shown. A source that came or went ends a move.
  arranged(sources) {
    if (this.order && this.order.length !== sources.length) this.forget();
    return this.order ? this.order.map((index) => sources[index]) : sources;
  }

  attach(handle, place) {
    handle.addEventListener("keydown", (event) => this.key(event, place));
    handle.addEventListener("keyup", (event) => event.key === " " && event.preventDefault()); // no click after the key
    handle.addEventListener("pointerdown", (event) => this.press(event, handle, place));
    // A screen reader's click has neither pointer nor key events.
    handle.addEventListener("click", (event) => event.detail === 0 && event.isTrusted && this.tap(place));
    handle.addEventListener("blur", () => this.held >= 0 && !this.moving && !this.drag && this.putBack());
  }

  // False while the decoder has not answered the last change.
  pickUp(place) {
    if (this.order) return false;
    this.order = Array.from({ length: this.list.count() }, (_, i) => i);
    this.held = place;
    this.list.changed();
    return true;
  }

  moveTo(place) {
    if (place < 0 || place >= this.order.length || place === this.held) return;
    const [index] = this.order.splice(this.held, 1);
    this.order.splice(place, 0, index);
    this.held = place;
    this.list.changed();
  }

  forget() {
    this.held = -1;
    this.order = null;
  }

  putBack() {
    this.forget();
    this.list.changed();
  }

  async putDown() {
    this.held = -1;
    this.list.changed();
    if (this.order.some((index, place) => index !== place)) await this.save();
    else this.putBack();
  }

  // The new order stays on the page until the decoder has it or refuses it.
  async save() {
    const { order } = this;
    try {
      const answer = await this.list.save(order);
      say(answer.message || "The new order is saved.");
    } catch (error) {
      warn(error.message);
    }
    if (this.order === order) this.putBack();
  }

  // Whether an order is on its way to the decoder.
  get saving() {
    return this.order !== null && this.held < 0;
  }

  // Tells where the source is that is held.
  tellPlace(words = "") {
    say(`${this.list.nameAt(this.held)}${words}, place ${this.held + 1} of ${this.list.count()}.`);
  }

  // ---- Keyboard --------------------------------------------------------------------------------------------------

  key(event, place) {
    if (event.key === " " || event.key === "Enter") {
      event.preventDefault();
      if (this.held >= 0) this.putDown();
      else if (this.pickUp(place)) this.tellPlace(" is picked up");
      return;
    }
    if (this.held < 0) return;
    if (event.key === "Escape") this.cancel(event);
    if (event.key === "ArrowUp" || event.key === "ArrowLeft") this.step(event, -1);
    if (event.key === "ArrowDown" || event.key === "ArrowRight") this.step(event, 1);
  }

  step(event, by) {
    event.preventDefault();
    this.moveAndFocus(this.held + by);
    this.tellPlace();
  }

  moveAndFocus(place) {
    this.moving = true; // the focus goes to another handle, which does not end the move
    this.moveTo(place);
    this.list.focusAt(this.held);
    this.moving = false;
  }

  cancel(event) {
    event.preventDefault();
    this.putBack();
    say("Put back.");
  }

  // ---- Pointer ---------------------------------------------------------------------------------------------------

  // A tap on a handle picks its source up, the next one says where it goes: a way without dragging.
  tap(place) {
    if (this.held < 0) {
      if (this.pickUp(place)) this.tellPlace(" is picked up. Tap the dots of another source to put it there. It is now");
      return;
    }
    this.moveAndFocus(place);
    this.putDown();
  }

  press(event, handle, place) {
    if (event.button !== 0 || this.drag) return;
    event.preventDefault();
    if (this.held >= 0) {
      this.tap(place);
      return;
    }
    handle.focus({ preventScroll: true }); // for Escape
    if (!this.pickUp(place)) return;
    const grip = event.clientY - this.list.elementAt(place).getBoundingClientRect().top;
    this.drag = { x: event.clientX, y: event.clientY, at: event.clientY, grip, moved: false };
    handle.setPointerCapture(event.pointerId);
    const over = new AbortController();
    const listen = (type, act) => handle.addEventListener(type, (happened) => {
      if (happened.pointerId === event.pointerId) act(happened);
    }, { signal: over.signal });
    const end = (saved) => {
      over.abort();
      this.endDrag(place, saved);
    };
    listen("pointermove", (now) => this.dragTo(now.clientX, now.clientY));
    listen("pointerup", () => end(true));
    listen("pointercancel", () => end(false));
    listen("lostpointercapture", () => end(false));
  }

  dragTo(x, y) {
    const { drag } = this;
    drag.at = y;
    if (drag.moved || Math.hypot(x - drag.x, y - drag.y) < dragBegins) return;
    drag.moved = true;
    document.body.classList.add("dragging");
    this.follow();
  }

  // Once a frame: the list scrolls where the pointer is at its edge, the source changes its place, and its card is where
  // the pointer is.
  follow() {
    const { drag } = this;
    if (!drag || this.held < 0) return;
    this.scroll(drag.at);
    this.shift(null);
    this.moveTo(this.placeAt(drag.at));
    const card = this.list.elementAt(this.held);
    this.shift(card, drag.at - drag.grip - card.getBoundingClientRect().top);
    requestAnimationFrame(() => this.follow());
  }

  // Shows a card so many pixels below its place; null: all at their places.
  shift(card, offset) {
    if (this.shifted) this.shifted.style.transform = "";
    this.shifted = card;
    if (card) card.style.transform = `translateY(${Math.round(offset)}px)`;
  }

  scroll(y) {
    const { element, top, bottom } = scrollerOf(this.list.elementAt(this.held));
    const beyond = Math.min(0, y - top - edge) + Math.max(0, y - bottom + edge);
    if (beyond) element.scrollTop += Math.max(-fastest, Math.min(fastest, beyond / 4));
  }

  endDrag(place, saved) {
    const { moved } = this.drag;
    this.shift(null);
    document.body.classList.remove("dragging");
    const gone = this.held < 0; // put back with Escape, or the list has changed
    if (!gone && saved && moved) this.moveAndFocus(this.held);
    this.drag = null;
    if (gone) return;
    if (!saved) this.putBack();
    else if (moved) this.putDown();
    else {
      this.forget();
      this.tap(place);
    }
  }

  // The place for the held source when its pointer is at that height. It changes places with a neighbour when the pointer
  // is beyond the neighbour's middle; so cards of different heights do not jump to and fro.
  placeAt(y) {
    const middle = (place) => {
      const { top, bottom } = this.list.elementAt(place).getBoundingClientRect();
      return (top + bottom) / 2;
    };
    let place = this.held;
    while (place + 1 < this.list.count() && y > middle(place + 1)) ++place;
    while (place > 0 && y < middle(place - 1)) --place;
    return place;
  }
}
