// The table beside the charts: values at the cursor, at A and at B, differences, and statistics from A to B.
import { make, swatch } from "./dom.js";
import { valueText } from "./ticks.js";

const short = (value) => valueText(value, 6);
const STATISTICS = [["min", "min"], ["max", "max"], ["mean", "mean"], ["std", "std"], ["rms", "rms"], ["slope", "slope/s"], ["n", "n"]];
const OPEN_FROM = 1000; // pixels: wider pages show the table from the start

export class ValuesPanel {
  #due = 0;

  constructor(app) {
    this.app = app;
    this.content = make("div", { class: "values", tabindex: "0", role: "region", "aria-label": "Values" });
    this.element = make("aside", { class: "panel", "aria-label": "Values at the cursors" }, this.content);
    this.open(innerWidth >= OPEN_FROM);
  }

  get isOpen() {
    return !this.element.hidden;
  }

  open(open) {
    this.element.hidden = !open;
    this.app.toolbar?.update();
    this.update();
  }

  // Shows new values; at most once a frame.
  update() {
    if (this.element.hidden) return;
    this.#due ||= requestAnimationFrame(() => {
      this.#due = 0;
      this.#show();
    });
  }

  #show() {
    const cards = this.app.shown.filter((card) => card.kind !== "synoptic" && card.curves.length && !["heatmap", "spectro", "line3d", "mesh"].includes(card.kind));
    const groups = [...new Set(cards.map((card) => card.group))];
    this.element.classList.toggle("wide", cards.some((card) => card.cursors.a !== null && card.cursors.b !== null));
    this.content.replaceChildren(...groups.flatMap((group) => this.#group(cards.filter((card) => card.group === group))));
    if (!groups.length) this.content.append(make("p", { class: "soft" }, "Point at a chart, or use the arrow keys, to read values."));
  }

  #group(cards) {
    const { at, a, b } = cards[0].cursors;
    const both = a !== null && b !== null;
    const roles = [["at", "Cursor", at], ...(a !== null ? [["a", "A", a]] : []), ...(b !== null ? [["b", "B", b]] : [])];
    const text = (place) => cards[0].placeText(place);
    const head = [make("td"), ...roles.map(([, name]) => make("th", { scope: "col" }, name))];
    const place = [make("th", { scope: "row" }, cards[0].timeFormat ? "Time" : cards[0].xlabel.textContent || "x"), ...roles.map(([, , where]) => make("td", { class: "place" }, text(where)))];
    if (both) {
      head.push(make("th", { scope: "col" }, "B − A"));
      place.push(make("td", {}, short(b - a)));
    }
    const rows = [make("tr", {}, ...place)];
    for (const card of cards) {
      for (const curve of card.curves) {
        if (curve.hidden) continue;
        const values = roles.map(([role]) => card.valueOf(curve.key, role));
        const cells = values.map((value, i) => make("td", {}, roles[i][2] === null ? "" : card.textOf(curve, value, 6)));
        if (both) cells.push(make("td", {}, values.at(-1) === null || values.at(-2) === null ? "–" : short(values.at(-1) - values.at(-2))));
        rows.push(make("tr", {}, make("th", { scope: "row" }, swatch(curve), make("span", {}, curve.shown)), ...cells));
      }
    }
    const parts = [make("table", {}, make("caption", { class: "unseen" }, "Values"), make("thead", {}, make("tr", {}, ...head)), make("tbody", {}, ...rows))];
    if (both) parts.push(this.#statistics(cards));
    return parts;
  }

  #statistics(cards) {
    const blocks = cards.flatMap((card) => card.curves.filter((curve) => !curve.hidden && card.probes.stats.has(curve.key)).map((curve) => {
      const row = card.probes.stats.get(curve.key);
      return make("tbody", {},
        make("tr", {}, make("th", { colspan: "4", scope: "rowgroup" }, swatch(curve), make("span", {}, curve.shown))),
        ...[0, 2, 4, 6].map((i) => make("tr", {}, ...STATISTICS.slice(i, i + 2).flatMap(([key, name]) => [make("th", { scope: "row" }, name), make("td", {}, short(row[key]))]))));
    }));
    return make("table", { class: "statistics" }, make("caption", {}, "From A to B"), ...blocks);
  }
}
