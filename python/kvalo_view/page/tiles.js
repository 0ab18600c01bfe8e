// The tiles a chart holds of its curves, and which of them serve a range.
import { FLAG, FORM } from "./protocol.js";

// Columns per pixel up to which a finer tile is drawn as it is.
const FINEST = 6;

const whole = (tile) => tile.form >= FORM.bars; // forms that come complete, whatever the range

// Coarseness of a tile: width of its columns, 0 for samples.
const columnWidth = (tile) => (tile.form === FORM.samples ? 0 : (tile.x1 - tile.x0) / Math.max(1, tile.n));

export class Tiles {
  #overview = new Map();
  #near = new Map(); // series -> tiles of views, newest first, at most two
  #spans = new Map(); // series -> first and last place ever sent

  take(tile) {
    const key = tile.series;
    if (tile.flags & FLAG.overview) {
      this.#overview.set(key, tile);
      return;
    }
    const old = this.#near.get(key) ?? [];
    const keep = tile.flags & FLAG.push
      ? [] // the data changed: nothing older is true any more
      : old.filter((t) => t.version >= tile.version && t.seq !== tile.seq);
    this.#near.set(key, [tile, ...keep].slice(0, 2));
  }

  clear() {
    this.#overview.clear();
    this.#near.clear();
  }

  get series() {
    return new Set([...this.#overview.keys(), ...this.#near.keys()]);
  }

  newest(key) {
    return this.#near.get(key)?.[0] ?? this.#overview.get(key) ?? null;
  }

  // Whether a held tile shows the range as finely as `px` columns can; `margin` in widths of the range.
  covers(key, a, b, px, margin = 0) {
    const wide = margin * (b - a);
    const step = (b - a) / px;
    return (this.#near.get(key) ?? []).some(
      (t) => whole(t) || (t.x0 <= a - wide && t.x1 >= b + wide && columnWidth(t) <= 1.02 * step && !(t.form === FORM.mask || t.form === FORM.pixels)),
    );
  }

  // What to draw for a range: tiles with the part of the range each one is for, coarse ones first.
  pick(key, a, b, px) {
    const near = this.#near.get(key) ?? [];
    const overview = this.#overview.get(key);
    const step = (b - a) / px;
    const fits = near
      .filter((t) => whole(t) || (t.x0 <= a && t.x1 >= b))
      .filter((t) => columnWidth(t) * FINEST >= step || !overview || t.form === FORM.samples)
      .sort((s, t) => Math.abs(columnWidth(s) - step) - Math.abs(columnWidth(t) - step))[0];
    if (fits && (columnWidth(fits) <= 4 * step || near.length === 1 || !overview)) return [{ tile: fits, a, b }];
    const parts = [];
    const partial = near.find((t) => t.x0 < b && t.x1 > a && (t.form === FORM.samples || columnWidth(t) * FINEST >= step || !overview));
    const from = partial ? Math.max(a, partial.x0) : b;
    const to = partial ? Math.min(b, partial.x1) : b;
    if (overview) {
      if (from > a) parts.push({ tile: overview, a, b: from });
      if (to < b) parts.push({ tile: overview, a: to, b });
    }
    if (partial) parts.push({ tile: partial, a: from, b: to });
    return parts;
  }

  // Lowest and highest finite value of a curve within a range, from what is held; null without any.
  extremes(key, a, b, px) {
    let low = Infinity;
    let high = -Infinity;
    for (const part of this.pick(key, a, b, px)) {
      const { tile } = part;
      const [first, last] = itemRange(tile, part.a, part.b);
      for (let i = first; i < last; i++) {
        if (tile.columns) {
          if (tile.columns[4 * i + 1] < low) low = tile.columns[4 * i + 1];
          if (tile.columns[4 * i + 2] > high) high = tile.columns[4 * i + 2];
        } else if (tile.y && Number.isFinite(tile.y[i])) {
          if (tile.y[i] < low) low = tile.y[i];
          if (tile.y[i] > high) high = tile.y[i];
        }
      }
      if (tile.columns && low <= high) return [low + tile.y0, high + tile.y0];
      if (tile.form === FORM.grid || tile.form === FORM.mask || tile.form === FORM.pixels) return [tile.y0, tile.y1];
    }
    return low <= high ? [low, high] : null;
  }
}

// Items of a tile that touch a range: [first, behind the last].
export function itemRange(tile, a, b) {
  if (tile.columns) {
    const step = (tile.x1 - tile.x0) / tile.n;
    if (!(step > 0)) return [0, tile.n];
    return [
      Math.max(0, Math.min(tile.n, Math.floor((a - tile.x0) / step))),
      Math.max(0, Math.min(tile.n, Math.ceil((b - tile.x0) / step))),
    ];
  }
  if (!tile.x || tile.flags & FLAG.descending || tile.form !== FORM.samples) return [0, tile.n];
  return [lowerBound(tile.x, a), lowerBound(tile.x, b, true)];
}

// The first place in ascending `x` at or after `t`; with `after`, the first after it.
export function lowerBound(x, t, after = false) {
  let low = 0;
  let high = x.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (x[middle] < t || (after && x[middle] === t)) low = middle + 1;
    else high = middle;
  }
  return low;
}
