// A chart with axes: which ranges it shows, what it asks the server for, and how the reader moves in it.
import { Card } from "./card.js";
import { FLAG, FORM, KIND } from "./protocol.js";
import { Pane } from "./pane.js";
import { gridRange } from "./paint.js";
import { kindOf } from "./kinds.js";
import { make } from "./dom.js";
import { scalePicture } from "./raster.js";
import { valueText } from "./ticks.js";

const SETTLE_MS = 120; // after so long without a move, the overscan is asked for
const WIDEST = 16384;
const ROOM = 0.35; // widths of the range that are held on each side, or more is asked for
const SIDES = { l: "left", r: "right" };

const pad = ([low, high], share) => {
  const room = high > low ? (high - low) * share : Math.abs(low) * 0.1 || 1;
  return [low - room, high + room];
};

export class PlotCard extends Card {
  canSvg = true;
  #panes = [];
  #asked = { key: "", wide: false };
  #moved = 0; // when the range changed last
  #range = null;
  fitSeen = null; // the reader's choice of fitting y to what is seen; null: the script's

  constructor(app, chart) {
    super(app, chart);
    const { panes = [null] } = kindOf(chart);
    for (const title of panes) {
      const host = make("div", { class: "pane" });
      this.body.append(host);
      if (title) host.append(make("span", { class: "pane-title" }, title));
      this.#panes.push(host);
    }
  }

  // Panes are made when the card is in the document and has a size.
  get panes() {
    if (!(this.#panes[0] instanceof Pane)) this.#panes = this.#panes.map((host, i) => new Pane(this, host, i));
    return this.#panes;
  }

  // ---- ranges ----

  get fullRange() {
    if (this.group === "time") return this.app.timeRange;
    return this.ownRange;
  }

  // The whole x range of this chart alone; null while nobody knows it.
  get ownRange() {
    let { min, max } = this.chart.x ?? {};
    if (min === null || min === undefined || !(min <= max)) {
      const tiles = [...this.tiles.series].map((key) => this.tiles.newest(key));
      min = Math.min(...tiles.map((tile) => tile.x0));
      max = Math.max(...tiles.map((tile) => tile.x1));
    }
    if (!(min <= max)) return null;
    return max > min ? [min, max] : [min - 0.5, max + 0.5];
  }

  get xRange() {
    if (this.group === "time") return this.app.shownTime;
    const full = this.fullRange ?? [0, 1];
    return this.app.views.axes(this.id).x ?? (kindOf(this.chart).dots ? pad(full, 0.04) : full);
  }

  // The range of a y axis: the reader's, the script's limits, what is seen, or all of the data.
  yRange(scale, pane, x) {
    const own = pane === 0 ? this.app.views.axes(this.id)[scale] : null;
    if (own) return own;
    if (this.kind === "bool") return [0, 1];
    const side = SIDES[scale];
    const curves = this.curves.filter((curve) => curve.pane === pane && curve.side === side);
    const unit = curves.find((curve) => curve.unit);
    if (unit) return unit.unit;
    const limits = (pane === 0 && this.chart[side]) || {};
    const fitted = this.fitSeen ?? (this.chart.fit === "b" || this.chart.fit === scale);
    let low = Infinity;
    let high = -Infinity;
    for (const curve of curves) {
      if (curve.hidden && !(curves.every((c) => c.hidden))) continue;
      const found = this.#extremes(curve, fitted, x);
      if (!found) continue;
      low = Math.min(low, found[0]);
      high = Math.max(high, found[1]);
    }
    if (!(low <= high)) [low, high] = [0, 1];
    const grid = curves.some((curve) => this.tiles.newest(curve.key)?.form === FORM.grid);
    if (kindOf(this.chart).zero && low >= 0) [low, high] = [0, high > 0 ? high * 1.05 : 1];
    else if (!grid) [low, high] = pad([low, high], 0.05);
    const range = [limits.min ?? low, limits.max ?? high];
    return range[0] < range[1] ? range : [range[0], range[0] + 1];
  }

  #extremes(curve, fitted, x) {
    if (!fitted && Number.isFinite(curve.ymin) && (this.kind === "line" || this.kind === "cross")) return [curve.ymin, curve.ymax];
    const range = fitted ? x : this.ownRange;
    return range && this.tiles.extremes(curve.key, range[0], range[1], this.panes[0].area.width);
  }

  tick(scale, pane) {
    return scale !== "x" && pane.index === 0 ? this.chart[SIDES[scale]]?.tick ?? null : null;
  }

  get rightAxis() {
    return this.app.rightAxis;
  }

  // Only the lowest plot area of a chart has texts on its x axis.
  xAxisHeight(pane) {
    if (pane.index < this.#panes.length - 1) return 8;
    return this.timeFormat === "datetime" ? 42 : 26;
  }

  // Names of states instead of numbers, where the server sent them.
  stateTexts(scale, ticks, pane) {
    const series = pane.curves.filter((curve) => curve.side === SIDES[scale]);
    if (series.length !== 1 || !series[0].states) return null;
    const names = new Map(series[0].states);
    return ticks.map((tick) => names.get(tick) ?? (Number.isInteger(tick) ? String(tick) : ""));
  }

  objectsOn(pane) {
    // Marks and flags of all charts are times: they mean nothing on other axes.
    const times = ({ type }) => type === "mark" || type === "flag";
    const all = (this.app.state.objects ?? []).filter((object) => this.group === "time" || !times(object));
    return pane.index === 0 ? [...all, ...(this.chart.objects ?? [])] : all.filter(times);
  }

  // ---- one animation frame ----

  frame() {
    if (!this.element.isConnected || !this.body.offsetWidth) return;
    const x = this.xRange;
    if (String(x) !== String(this.#range)) {
      this.#moved = performance.now();
      this.#range = x;
    }
    for (const pane of this.panes) {
      const curves = this.curves.filter((curve) => curve.pane === pane.index);
      const ranges = { x, l: this.yRange("l", pane.index, x), r: this.yRange("r", pane.index, x) };
      pane.draw(ranges, curves, `${this.stamp} ${this.app.stamp}`);
    }
    this.#request(x);
    this.#showBadge();
    this.summarize(x);
    this.ask();
  }

  cursorPlace() {
    return this.cursors.at;
  }

  #showBadge() {
    let ratio = 1;
    for (const curve of this.curves) {
      if (!curve.hidden) ratio = Math.max(ratio, this.tiles.newest(curve.key)?.ratio ?? 1);
    }
    this.badge.hidden = ratio <= 1;
    const text = ratio > 1 ? `1:${String(ratio).replace(/\B(?=(\d{3})+$)/g, "\u202f")}` : "";
    if (this.badge.textContent === text) return;
    this.badge.textContent = text;
    this.badge.title = `One column of pixels stands for up to ${ratio} samples; the extremes are exact`;
  }

  // The reader sees the chart again, or no longer.
  setSeen(seen) {
    if (seen === this.seen) return;
    this.seen = seen;
    if (!seen) this.app.source.send(KIND.view, { flags: 2, chart: this.chart.key, width: 1, height: 1 });
    this.#asked = { key: "", wide: false };
    this.app.schedule();
  }

  // A new conversation knows nothing of what was asked before.
  update(chart, fresh) {
    if (fresh) this.#asked = { key: "", wide: false };
    super.update(chart, fresh);
  }

  #request(x) {
    if (!this.chart.series.length || this.app.receiving) return;
    const { width, height } = this.panes[0].area;
    if (kindOf(this.chart).whole) {
      this.#send({ a: NaN, b: NaN, width, height }, false);
      return;
    }
    const full = this.ownRange;
    if (!full) {
      this.#send({ width, height }, false); // nobody knows the range yet: all of it
      return;
    }
    const [a, b] = [Math.max(x[0], full[0]), Math.min(x[1], full[1])];
    const follow = this.group === "time" && this.app.following;
    const masked = this.#masked;
    if (follow) {
      this.#send({ a: x[0], b: x[1], width, height, flags: 1 }, false, `follow ${(x[1] - x[0]).toPrecision(9)} ${width} ${height}`);
      return;
    }
    const shown = this.curves.filter((curve) => !curve.hidden);
    const covered = !masked && a < b && shown.every((curve) => this.tiles.covers(curve.key, a, b, width * ((b - a) / (x[1] - x[0]))));
    if (!covered) {
      const [c, d] = masked ? this.yRange("l", 0, x) : [];
      this.#send({ a: x[0], b: x[1], c, d, width, height }, false);
      return;
    }
    const span = x[1] - x[0];
    const [from, to] = [Math.max(full[0], x[0] - ROOM * span), Math.min(full[1], x[1] + ROOM * span)];
    // Half as fine: what is held and reaches far enough is never asked for again.
    if (3 * width > WIDEST || shown.every((curve) => this.tiles.covers(curve.key, from, to, 0.5 * width))) return;
    const moving = performance.now() - this.#moved < SETTLE_MS;
    if (moving && !this.#asked.wide) {
      this.app.later(SETTLE_MS);
      return;
    }
    this.#send({ a: x[0] - span, b: x[1] + span, width: 3 * width, height }, true);
  }

  // Kinds whose pictures are pixels of the view are asked for exactly what is seen.
  get #masked() {
    return this.kind === "cross" || this.chart.series.some((series) => series.style === "dots" || series.ascending === false);
  }

  #send(fields, wide, key = Object.values(fields).join(" ")) {
    if (this.#asked.key === key) return;
    const seq = this.app.source.send(KIND.view, { ...fields, chart: this.chart.key });
    if (seq) this.#asked = { key, wide };
  }

  take(tile) {
    super.take(tile);
    if (tile.flags & FLAG.push && this.group === "time" && this.app.following) this.app.newest(tile.x1);
    if (tile.form === FORM.grid) this.#showScale(tile);
  }

  #showScale(tile) {
    const { cells } = kindOf(this.chart);
    if (!cells) return;
    const [low, high] = gridRange(tile, cells === "dB");
    if (!this.scale) {
      const picture = scalePicture();
      picture.setAttribute("aria-hidden", "true");
      this.scale = make("span", { class: "scale" }, make("span"), picture, make("span"));
      this.badge.before(this.scale);
    }
    this.scale.firstChild.textContent = valueText(Math.round(low * 10) / 10);
    this.scale.lastChild.textContent = `${valueText(Math.round(high * 10) / 10)} ${cells}`;
  }

  // ---- what the reader does ----

  hover(place) {
    this.app.setCursor(this.group, place);
  }

  // Takes new ranges over: { x, l, r }, those that are set.
  select(pane, ranges, kind = "") {
    if (ranges.x) this.app.stopFollowing();
    const axes = {};
    if (pane.index === 0 && ranges.l) axes.l = ranges.l;
    if (pane.index === 0 && ranges.r && pane.hasRight) axes.r = ranges.r;
    const { views } = this.app;
    let { time } = views.now;
    if (ranges.x && this.group === "time") time = ranges.x;
    else if (ranges.x) axes.x = ranges.x;
    views.setChart(this.id, axes, kind, time);
    this.app.viewChanged();
  }

  drag(pane, start, dx, dy) {
    const shift = ([low, high], share) => [low + share * (high - low), high + share * (high - low)];
    const moved = { x: shift(start.x, dx) };
    // A hand is not steady: up and down counts once it is meant.
    if (Math.abs(dy) > 0.04 && this.kind !== "bool") Object.assign(moved, { l: shift(start.l, dy), r: shift(start.r, dy) });
    this.select(pane, moved, `drag ${this.id}`);
  }

  wheel(pane, axis, at, delta, sideways) {
    const scaled = ([low, high], share, factor) => {
      const fixed = low + share * (high - low);
      return [fixed + (low - fixed) * factor, fixed + (high - fixed) * factor];
    };
    if (axis === "x" && sideways) {
      this.pan(delta / 1200);
      return;
    }
    const factor = Math.exp(delta / 500);
    const ranges = {};
    if (axis === "x") ranges.x = scaled(pane.x, Math.max(0, Math.min(1, at.x)), factor);
    if (axis.includes("l")) ranges.l = scaled(pane.l, at.y, factor);
    if (axis.includes("r")) ranges.r = scaled(pane.r, at.y, factor);
    for (const range of Object.values(ranges)) if (!(range[1] - range[0] > 1e-13 * Math.abs(range[0]))) return;
    this.select(pane, ranges, `wheel ${this.id} ${axis}`);
  }

  // Moves along x by a share of the range.
  pan(share) {
    const [low, high] = this.xRange;
    this.select(this.panes[0], { x: [low + share * (high - low), high + share * (high - low)] }, `pan ${this.group}`);
  }

  // Zooms x around the cursor, or around the middle.
  zoom(factor) {
    const [low, high] = this.xRange;
    const { at } = this.cursors;
    const fixed = at !== null && at > low && at < high ? at : (low + high) / 2;
    const range = [fixed + (low - fixed) * factor, fixed + (high - fixed) * factor];
    if (range[1] - range[0] > 1e-13 * Math.abs(fixed)) this.select(this.panes[0], { x: range }, `zoom ${this.group}`);
  }

  // All of the data on all axes.
  reset() {
    const { views } = this.app;
    views.setChart(this.id, { x: null, l: null, r: null }, "", this.group === "time" ? null : views.now.time);
    this.app.viewChanged();
  }

  toggleFit() {
    const { views } = this.app;
    this.fitSeen = !(this.fitSeen ?? (this.chart.fit && this.chart.fit !== "0"));
    views.setChart(this.id, { l: null, r: null });
    this.app.viewChanged();
    this.changed();
    return this.fitSeen;
  }

  // One column of pixels on the screen, in units of the x axis.
  get columnStep() {
    const [low, high] = this.xRange;
    return (high - low) / this.panes[0].u.over.clientWidth;
  }
}
