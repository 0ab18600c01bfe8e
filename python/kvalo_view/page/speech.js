// Speaks to screen readers through one polite region, at most four times a second; the newest text wins.
import { make } from "./dom.js";

const PAUSE_MS = 250;

export class Speech {
  element = make("div", { class: "unseen", role: "status", "aria-live": "polite" });
  #last = 0;
  #timer = 0;
  #text = "";
  #awaited = null;

  say(text) {
    this.#text = text;
    if (this.#timer) return;
    this.#timer = setTimeout(() => {
      this.#timer = 0;
      this.#last = performance.now();
      this.element.textContent = this.#text;
    }, Math.max(0, this.#last + PAUSE_MS - performance.now()));
  }

  // Says what a card has at its cursor as soon as the values have come.
  await(card) {
    this.#awaited = card;
  }

  answered(card) {
    if (card !== this.#awaited) return;
    this.#awaited = null;
    this.say(card.spoken());
  }
}
