// Changing the order of the sources, with the pointer or with the keyboard. While a source is held, the list shows the
// new order; the decoder gets it when the source is put down.

import { say, warn } from "./dom.js";

export class Ordering {
  // `list`: count(), nameAt(place), elementAt(place), focusAt(place), changed() to draw the list again, and
  // save(order), which sends the indices of the sources in their new order.
  constructor(list) {
    this.list = list;
    this.held = -1; // the place of the source that is held; -1: none
    this.order = null; // indices into the decoder's list, while a source is held and until the decoder has it
  }

  // The sources in the order in which they are shown.
  arranged(sources) {
    if (!this.order || this.order.length !== sources.length) return sources;
    return this.order.map((index) => sources[index]);
  }

  attach(handle, place) {
    handle.addEventListener("keydown", (event) => this.key(event, place));
    handle.addEventListener("pointerdown", (event) => this.drag(event, handle, place));
    handle.addEventListener("blur", () => this.held >= 0 && !this.moving && this.putBack());
  }

  pickUp(place) {
    this.order = Array.from({ length: this.list.count() }, (_, i) => i);
    this.held = place;
    this.list.changed();
  }

  moveTo(place) {
    if (place < 0 || place >= this.order.length || place === this.held) return;
    const [index] = this.order.splice(this.held, 1);
    this.order.splice(place, 0, index);
    this.held = place;
    this.list.changed();
  }

  putBack() {
    this.held = -1;
    this.order = null;
    this.list.changed();
  }

  async putDown() {
    const order = this.order;
    this.held = -1;
    this.list.changed();
    if (order.some((index, place) => index !== place)) {
      try {
        const answer = await this.list.save(order);
        say(answer.message || "The new order is saved.");
      } catch (error) {
        warn(error.message);
      }
    }
    if (this.order === order) this.order = null;
    this.list.changed();
  }

  // ---- Keyboard --------------------------------------------------------------------------------------------------

  key(event, place) {
    if (event.key === " " || event.key === "Enter") {
      event.preventDefault();
      if (this.held < 0) this.begin(place);
      else this.putDown();
      return;
    }
    if (this.held < 0) return;
    if (event.key === "Escape") this.cancel(event);
    if (event.key === "ArrowUp" || event.key === "ArrowLeft") this.step(event, -1);
    if (event.key === "ArrowDown" || event.key === "ArrowRight") this.step(event, 1);
  }

  begin(place) {
    this.pickUp(place);
    say(`${this.list.nameAt(place)} is picked up, place ${place + 1} of ${this.list.count()}.`);
  }

  step(event, by) {
    event.preventDefault();
    this.moving = true; // the focus goes to another handle, which does not end the move
    this.moveTo(this.held + by);
    this.list.focusAt(this.held);
    this.moving = false;
    say(`${this.list.nameAt(this.held)}, place ${this.held + 1} of ${this.list.count()}.`);
  }

  cancel(event) {
    event.preventDefault();
    this.putBack();
    say("Put back.");
  }

  // ---- Pointer ---------------------------------------------------------------------------------------------------

  drag(event, handle, place) {
    if (event.button !== 0) return;
    event.preventDefault();
    handle.setPointerCapture(event.pointerId);
    this.moving = true;
    this.pickUp(place);
    const move = (at) => this.moveTo(this.placeAt(at.clientX, at.clientY));
    const stop = (save) => {
      handle.removeEventListener("pointermove", move);
      this.moving = false;
      if (this.held < 0) return;
      if (save) this.putDown();
      else this.putBack();
    };
    handle.addEventListener("pointermove", move);
    handle.addEventListener("pointerup", () => stop(true), { once: true });
    handle.addEventListener("pointercancel", () => stop(false), { once: true });
  }

  // The place of the card below the pointer; the held one when there is none.
  placeAt(x, y) {
    for (let place = 0; place < this.list.count(); ++place) {
      const box = this.list.elementAt(place).getBoundingClientRect();
      if (x >= box.left && x <= box.right && y >= box.top && y <= box.bottom) return place;
    }
    return this.held;
  }
}
