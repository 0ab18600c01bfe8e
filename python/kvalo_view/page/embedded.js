// Answers like the server from data that the file itself holds, for pages without one.
import { FLAG, FORM, KIND, MARK, parseTile, readJson } from "./protocol.js";
import { lowerBound } from "./tiles.js";

const GAP = 65535; // stands for "no finite value" in packed columns

async function unpack(text) {
  const packed = Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Response(stream).arrayBuffer();
}

// Columns are packed as 16-bit steps between two bounds, each of the four values in a row of its own and as
// the difference to the one before; assemble.py says more.
function unpackColumns(buffer) {
  const tile = parseTile(buffer.slice(0, 96), true);
  const view = new DataView(buffer);
  const [low, high] = [view.getFloat64(96, true), view.getFloat64(104, true)];
  const steps = new Uint16Array(buffer, 112, 4 * tile.n);
  const columns = new Float32Array(4 * tile.n);
  const scale = (high - low) / (GAP - 1);
  tile.y0 = low;
  for (let row = 0; row < 4; row++) {
    let value = 0;
    for (let k = 0; k < tile.n; k++) {
      value = (value + steps[row * tile.n + k]) & GAP;
      columns[4 * k + row] = value === GAP ? NaN : value * scale;
    }
  }
  return { ...tile, columns, marks: new Uint8Array(buffer, 112 + 8 * tile.n, tile.n) };
}

// Fewer columns from many: `n` of them over a range.
function reduce(tile, a, b, n) {
  const step = (tile.x1 - tile.x0) / tile.n;
  const first = Math.max(0, Math.floor((a - tile.x0) / step));
  const last = Math.min(tile.n, Math.ceil((b - tile.x0) / step));
  if (last - first <= n) return null;
  const columns = new Float32Array(4 * n).fill(NaN);
  const marks = new Uint8Array(n).fill(MARK.empty);
  for (let k = first; k < last; k++) {
    const to = Math.max(0, Math.min(n - 1, Math.floor(((tile.x0 + (k + 0.5) * step - a) / (b - a)) * n)));
    if (tile.marks[k] & MARK.empty) continue;
    const [c, f] = [4 * to, 4 * k];
    if (marks[to] & MARK.empty) columns[c] = tile.columns[f];
    if (!(columns[c + 1] <= tile.columns[f + 1])) columns[c + 1] = tile.columns[f + 1];
    if (!(columns[c + 2] >= tile.columns[f + 2])) columns[c + 2] = tile.columns[f + 2];
    columns[c + 3] = tile.columns[f + 3];
    marks[to] = (marks[to] & ~MARK.empty) | tile.marks[k];
  }
  return { ...tile, x0: a, x1: b, n, columns, marks, before: [NaN, NaN], after: [NaN, NaN], ratio: Math.round((tile.ratio * tile.n * (b - a)) / (tile.x1 - tile.x0) / n) };
}

// The last value at or before a place, and that place.
function held(tile, at) {
  if (tile.form === FORM.samples) {
    const i = lowerBound(tile.x, at, true) - 1;
    return i < 0 ? [null, null] : [tile.x[i], tile.y[i]];
  }
  if (!tile.columns || !(at >= tile.x0)) return [null, null];
  const step = (tile.x1 - tile.x0) / tile.n;
  let k = Math.min(tile.n - 1, Math.floor((at - tile.x0) / step));
  while (k >= 0 && tile.marks[k] & MARK.empty) k--;
  return k < 0 ? [null, null] : [tile.x0 + (k + 0.5) * step, tile.columns[4 * k + 3] + tile.y0];
}

// What is known of a range from columns or samples; mean and deviation need every sample.
function statistics(tile, a, b) {
  const row = { series: tile.series, n: null, min: null, max: null, mean: null, std: null, rms: null, slope: null };
  const [from, to] = [held(tile, a), held(tile, b)];
  if (from[0] !== null && to[0] > from[0]) row.slope = (to[1] - from[1]) / (to[0] - from[0]);
  const step = (tile.x1 - tile.x0) / tile.n;
  const place = (i) => (tile.columns ? tile.x0 + (i + 0.5) * step : tile.x[i]);
  for (let i = 0; i < tile.n; i++) {
    if (place(i) < a || place(i) > b) continue;
    const [low, high] = tile.columns ? [tile.columns[4 * i + 1] + tile.y0, tile.columns[4 * i + 2] + tile.y0] : [tile.y[i], tile.y[i]];
    if (row.min === null || low < row.min) row.min = low;
    if (row.max === null || high > row.max) row.max = high;
  }
  return row;
}

// Has the same face as Connection.
export class Embedded {
  offline = true;
  #seq = 0;
  #tiles = new Map(); // chart key -> tiles

  constructor(text, on) {
    this.on = on;
    this.#start(readJson(text));
  }

  async #start({ state, tiles }) {
    const all = await Promise.all(tiles.map(async ({ packed, data }) => {
      const buffer = await unpack(data);
      return packed ? unpackColumns(buffer) : parseTile(buffer);
    }));
    for (const tile of all) {
      if (!tile) continue;
      if (!this.#tiles.has(tile.chart)) this.#tiles.set(tile.chart, []);
      this.#tiles.get(tile.chart).push(tile);
    }
    this.on.status("open");
    this.on.message({ ...state, pictures: false, live: false, alive: false });
    this.#each((tile) => {
      const overview = tile.columns && reduce(tile, tile.x0, tile.x1, 2048);
      if (overview) this.on.tile({ ...overview, flags: tile.flags | FLAG.overview, seq: 0 });
    });
    this.on.drawn(() => {});
  }

  #each(use) {
    for (const tiles of this.#tiles.values()) tiles.forEach(use);
  }

  send(kind, { chart, a, b, width, flags = 0 }) {
    const seq = ++this.#seq;
    const tiles = this.#tiles.get(chart) ?? [];
    const answer = (type, values) => queueMicrotask(() => this.on.message({ type, chart, seq, values }));
    if (kind === KIND.view && !(flags & 2)) {
      queueMicrotask(() => {
        for (const tile of tiles) {
          this.on.tile({ ...((tile.columns && Number.isFinite(a) && reduce(tile, a, b, width)) || tile), seq });
        }
        this.on.drawn(() => {});
      });
    } else if (kind === KIND.probe) {
      answer("values", tiles.filter((tile) => tile.columns || tile.form === FORM.samples).map((tile) => {
        const [x, y] = held(tile, Number.isNaN(a) ? Infinity : a);
        return { series: tile.series, x, y, near_x: x, near_y: y };
      }));
    } else if (kind === KIND.stats) {
      answer("stats", tiles.filter((tile) => tile.columns || tile.y).map((tile) => statistics(tile, a, b)));
    }
    return seq;
  }
}
