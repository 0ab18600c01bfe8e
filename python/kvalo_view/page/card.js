// A chart as a figure: frame, legend, messages, values. What is inside depends on the kind of chart.
import { make, menu, swatch } from "./dom.js";
import { curvesOf, kindOf } from "./kinds.js";
import { FLAG } from "./protocol.js";
import { Probes } from "./probes.js";
import { Tiles } from "./tiles.js";
import { timeFormat, timeText, valueText } from "./ticks.js";

const SUMMARY_MS = 1000;

export class Card {
  tiles = new Tiles();
  stamp = 0; // grows with whatever makes the picture another one
  seen = true;
  #hidden = new Set(); // ids of series that the reader has switched off
  #summaryAt = 0;
  #legendKey = "";

  constructor(app, chart) {
    this.app = app;
    this.id = chart.id;
    this.probes = new Probes(app.source, () => {
      this.#showValues();
      app.valuesChanged(this);
    });
    const label = `caption-${chart.id}`;
    this.legend = make("ul", { class: "legend", "aria-label": "Curves" });
    this.badge = make("span", { class: "badge", hidden: true });
    this.summary = make("span", { class: "unseen" });
    this.heading = make("span", { id: label, class: "heading" });
    this.message = make("p", { class: "message", role: "status", hidden: true });
    this.body = make("div", { class: "body" });
    this.xlabel = make("div", { class: "xlabel" });
    this.element = make("figure", { class: kindOf(chart).titled ? "card titled" : "card", tabindex: "0", "aria-labelledby": label },
      make("figcaption", {}, this.heading, this.summary, this.legend, this.badge,
        ...menu("⋯", "Actions of this chart", () => this.actions())),
      this.body, this.message, this.xlabel);
    this.element.addEventListener("focusin", () => app.focus(this));
    this.element.addEventListener("mousedown", () => app.focus(this));
    this.chart = chart;
    this.curves = [];
  }

  get kind() {
    return this.chart.kind;
  }

  // Charts of one group share their x range and cursor.
  get group() {
    return this.chart.x?.time ? "time" : this.id;
  }

  get cursors() {
    return this.app.cursorsOf(this.group);
  }

  // null where the x axis is not time.
  get timeFormat() {
    return this.chart.x?.time ? timeFormat(this.app.state.timeformat, Math.abs(this.chart.x.max ?? 0)) : null;
  }

  // A new state. Keys may be others after a new conversation, then `fresh` is true.
  update(chart, fresh) {
    if (fresh) {
      this.tiles.clear();
      this.probes.forget(true);
    }
    this.chart = chart;
    this.curves = curvesOf(chart, (key) => this.isHidden(key));
    this.heading.textContent = this.title;
    this.xlabel.textContent = chart.xlabel || kindOf(chart).x(chart);
    this.xlabel.hidden = !this.xlabel.textContent;
    const text = chart.error ?? (chart.busy ? "Computing …" : chart.series.length || chart.kind === "line" ? "" : "Nothing yet");
    this.message.textContent = text;
    this.message.hidden = !text;
    this.element.setAttribute("aria-busy", String(!!chart.busy));
    this.#showLegend();
    this.changed();
  }

  get title() {
    const { name, title } = kindOf(this.chart);
    const curves = title?.(this.chart) ?? this.curves.map((curve) => curve.label).join(", ");
    return curves ? `${name}: ${curves}` : name;
  }

  actions() {
    const { app } = this;
    const items = [
      ["Show the whole range", () => app.run("all"), "0"],
      ["Fit the y axes to what is seen", () => app.run("fit"), "y"],
      ["Table of the view", () => app.run("table"), "s"],
      [app.alone === this ? "Show all charts" : "Show this chart alone", () => app.run("alone"), "o"],
      ["Save as CSV", () => app.export(this, "csv")],
      ["Save as PNG", () => app.export(this, "png")],
    ];
    if (this.canSvg) items.push(["Save as SVG", () => app.export(this, "svg")]);
    return items;
  }

  // ---- curves that are switched off ----

  #idOf(key) {
    return this.chart.series.find((series) => series.key === key)?.id ?? String(key);
  }

  isHidden(key) {
    return this.#hidden.has(this.#idOf(key));
  }

  toggle(key) {
    const id = this.#idOf(key);
    if (!this.#hidden.delete(id)) this.#hidden.add(id);
    this.#curvesChanged();
  }

  // Shows one curve alone; once more shows all.
  isolate(key) {
    const others = this.curves.filter((curve) => curve.key !== key).map((curve) => this.#idOf(curve.key));
    const alone = !this.isHidden(key) && others.every((id) => this.#hidden.has(id));
    this.#hidden = new Set(alone ? [] : others);
    this.#curvesChanged();
  }

  #curvesChanged() {
    this.curves = curvesOf(this.chart, (key) => this.isHidden(key));
    this.#showLegend();
    this.changed();
  }

  // The theme is another one.
  recolor() {
    this.#legendKey = "";
    this.#curvesChanged();
  }

  #showLegend() {
    const { visible = true, full = false, x = 0, y = 0 } = this.chart.legend ?? {};
    this.legend.hidden = visible === false;
    const floating = visible !== false && !!(x || y);
    this.legend.classList.toggle("floating", floating);
    const length = (value) => (Math.abs(value) <= 1 ? `${100 * value}%` : `${value}px`);
    this.legend.style.left = floating ? length(x) : "";
    this.legend.style.top = floating ? length(y) : "";
    const home = floating ? this.body : this.heading.parentElement;
    if (this.legend.parentElement !== home) floating ? home.append(this.legend) : this.summary.after(this.legend);
    const key = JSON.stringify([full, this.curves.map((c) => [c.key, c.shown, c.hidden, c.color, c.side])]);
    if (key === this.#legendKey) return;
    this.#legendKey = key;
    const focused = [...this.legend.children].findIndex((item) => item.contains(document.activeElement));
    this.legend.replaceChildren(...this.curves.map((curve) => this.#legendItem(curve)));
    this.legend.children[focused]?.firstChild.focus();
    this.#showValues();
  }

  #legendItem(curve) {
    const click = (event) => {
      if (event.altKey || event.ctrlKey || event.shiftKey) this.isolate(curve.key);
      else this.toggle(curve.key);
    };
    const key = (event) => {
      if (event.key !== "i") return;
      event.stopPropagation();
      this.isolate(curve.key);
    };
    const button = make("button", {
      type: "button", "aria-pressed": String(!curve.hidden), onclick: click, ondblclick: () => this.isolate(curve.key), onkeydown: key,
      title: `${curve.full_name || curve.label}\nClick: hide or show; with Ctrl: alone`,
    }, swatch(curve), make("span", { class: "name" }, curve.shown + (curve.side === "right" ? " (right)" : "")));
    return make("li", {}, button, make("span", { class: "value", "data-key": curve.key }));
  }

  // ---- values ----

  valueOf(key, role = "at") {
    const row = this.probes.values[role].get(key);
    return row ? row.y : null;
  }

  // A value with the name of its state, where it is one.
  textOf(curve, value, digits) {
    return curve.states?.find(([state]) => state === value)?.[1] ?? valueText(value, digits);
  }

  #showValues() {
    for (const place of this.legend.querySelectorAll(".value")) {
      const curve = this.curves.find((one) => String(one.key) === place.dataset.key);
      const value = this.valueOf(curve?.key);
      place.textContent = this.cursors.at === null || value === null ? "" : this.textOf(curve, value);
    }
  }

  placeText(place) {
    if (place === null) return "–";
    const format = this.timeFormat;
    if (!format) return `${valueText(place)} ${this.chart.x?.unit ?? ""}`.trim();
    return timeText(place, format, 3) + (format === "seconds" ? " s" : "");
  }

  // What a screen reader says about the cursor.
  spoken() {
    const values = this.curves.filter((curve) => !curve.hidden).map((curve) => `${curve.label} ${this.textOf(curve, this.valueOf(curve.key))}`);
    return [this.placeText(this.cursors.at), ...values].join("; ");
  }

  // Range, samples and extremes as a sentence, at most once a second.
  summarize(range) {
    const now = performance.now();
    if (now - this.#summaryAt < SUMMARY_MS) return;
    this.#summaryAt = now;
    const parts = this.chart.series.map((s) => {
      const extremes = Number.isFinite(s.ymin) ? `, ${valueText(s.ymin)} to ${valueText(s.ymax)}` : "";
      return `${s.name}: ${s.n} samples${extremes}.`;
    });
    const shown = range ? `Shown from ${this.placeText(range[0])} to ${this.placeText(range[1])}. ` : "";
    const text = shown + parts.join(" ");
    if (text !== this.summary.textContent) this.summary.textContent = text;
  }

  // ---- what kinds of cards differ in ----

  changed() {
    this.stamp++;
    this.app?.schedule();
  }

  take(tile) {
    this.tiles.take(tile);
    if (tile.flags & FLAG.push) this.probes.forget(false);
    this.changed();
  }

  ask() {
    const { at, a, b } = this.cursors;
    this.probes.ask(this.chart.key, { at, a, b });
  }
}
