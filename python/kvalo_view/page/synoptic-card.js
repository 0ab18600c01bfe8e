// A synoptic chart: objects at places of a board, each with the value of its series at the cursor.
import { Card } from "./card.js";
import { make } from "./dom.js";
import { valueText } from "./ticks.js";

export class SynopticCard extends Card {
  #board = null;
  #tiles = new Map(); // series key -> elements

  update(chart, fresh) {
    super.update(chart, fresh);
    this.#board ??= this.body.appendChild(make("div", { class: "board" }));
    this.#tiles.clear();
    let free = 8; // objects without a place go below each other
    this.#board.replaceChildren(...chart.series.map((series, i) => {
      const { x, y, width } = series.object ?? {};
      const name = make("span", { class: "name" }, series.name);
      const value = make("span", { class: "value" });
      const bar = make("span", { class: "bar" });
      const track = make("span", { class: "track" }, bar);
      const element = make("div", { class: "object" }, name, value, track);
      const color = series.object?.color;
      bar.style.background = color ? `rgb(${color.join(" ")})` : this.curves[i].color;
      element.style.left = `${x ?? 8}px`;
      element.style.top = `${y ?? free}px`;
      if (y === null || y === undefined) free += 56;
      if (width) element.style.width = `${width}px`;
      this.#tiles.set(series.key, { value, bar, track, object: series.object ?? {} });
      return element;
    }));
  }

  get group() {
    return "time";
  }

  // Values at the cursor, or the newest where there is none.
  frame() {
    if (!this.element.isConnected) return;
    const { at } = this.cursors;
    this.probes.ask(this.chart.key, { at: at ?? NaN, a: null, b: null });
    this.#show();
    this.summarize(null);
  }

  #show() {
    for (const [key, { value, bar, track, object }] of this.#tiles) {
      const y = this.valueOf(key);
      value.textContent = valueText(y);
      const [min, max] = [object.min ?? 0, object.max ?? 1];
      track.hidden = object.min === null && object.max === null;
      const share = Number.isFinite(y) && max > min ? Math.max(0, Math.min(1, (y - min) / (max - min))) : 0;
      bar.style.width = `${100 * share}%`;
    }
  }

  spoken() {
    return this.chart.series.map((series) => `${series.name} ${valueText(this.valueOf(series.key))}`).join("; ");
  }

  setSeen(seen) {
    this.seen = seen;
  }

  reset() {}
}
