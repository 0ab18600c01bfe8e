// Paths of curves from the binary columns and samples of tiles, for any pen with moveTo, lineTo and rect.
import { FLAG, FORM, MARK } from "./protocol.js";
import { itemRange } from "./tiles.js";

// A map turns places into pixels: left + (x - x0) * kx and bottom - (y - y0) * ky. Subtracting first keeps
// Unix times exact.
export const toX = (map, x) => map.left + (x - map.x0) * map.kx;
export const toY = (map, y) => map.bottom - (y - map.y0) * map.ky;

// The middle of the device pixel that a place falls into: strokes one pixel wide stay sharp there.
const middle = (px) => Math.floor(px) + 0.5;

// A stroke of no length leaves no ink, so a lone value gets one of a pixel.
function dot(pen, x, y) {
  pen.moveTo(x, y - 0.5);
  pen.lineTo(x, y + 0.5);
}

// Draws a curve and returns where non-finite values were: pairs of place and 1 for the top, -1 for the bottom.
export function linePath(pen, part, map) {
  const { tile } = part;
  if (tile.form === FORM.hold) return holdColumns(pen, part, map);
  if (tile.form === FORM.columns) return lineColumns(pen, part, map);
  return tile.flags & FLAG.hold ? holdSamples(pen, part, map) : lineSamples(pen, part, map);
}

function noteEdges(edges, marks, k, x) {
  if (marks & MARK.high) edges.push(x, 1);
  if (marks & MARK.low) edges.push(x, -1);
}

function lineColumns(pen, part, map) {
  const { tile } = part;
  const { columns, marks, y0, before, after } = tile;
  const [first, last] = itemRange(tile, part.a, part.b);
  const step = (tile.x1 - tile.x0) / tile.n;
  const edges = [];
  const base = map.bottom - (y0 - map.y0) * map.ky;
  const ky = map.ky;
  let open = false;
  // The neighbour outside, or the last filled column left of the part.
  let k = first - 1;
  while (k >= 0 && marks[k] & MARK.empty) k--;
  if (k >= 0) {
    open = columns[4 * k + 3] === columns[4 * k + 3];
    if (open) pen.moveTo(toX(map, tile.x0 + (k + 0.5) * step), base - columns[4 * k + 3] * ky);
  } else if (Number.isFinite(before[1])) {
    pen.moveTo(toX(map, before[0]), toY(map, before[1]));
    open = true;
  }
  for (k = first; k < last; k++) {
    const mark = marks[k];
    if (mark & MARK.empty) continue;
    const x = middle(toX(map, tile.x0 + (k + 0.5) * step));
    if (mark & (MARK.high | MARK.low)) noteEdges(edges, mark, k, x);
    const at = 4 * k;
    if (!(columns[at + 1] === columns[at + 1])) {
      open = false;
      continue;
    }
    const low = base - columns[at + 1] * ky;
    const high = base - columns[at + 2] * ky;
    const enter = base - columns[at] * ky;
    const leave = base - columns[at + 3] * ky;
    if (open && enter === enter) pen.lineTo(x, enter);
    else if (low - high < 1) dot(pen, x, low);
    else pen.moveTo(x, enter === enter ? enter : low);
    if (low - high > 0) {
      const down = Math.abs(enter - high) < Math.abs(enter - low);
      pen.lineTo(x, down ? high : low);
      pen.lineTo(x, down ? low : high);
    }
    open = leave === leave;
    if (open) pen.lineTo(x, leave);
  }
  if (!open) return edges;
  while (k < tile.n && marks[k] & MARK.empty) k++;
  if (k < tile.n) {
    if (columns[4 * k] === columns[4 * k]) pen.lineTo(toX(map, tile.x0 + (k + 0.5) * step), base - columns[4 * k] * ky);
  } else if (Number.isFinite(after[1])) {
    pen.lineTo(toX(map, after[0]), toY(map, after[1]));
  }
  return edges;
}

function holdColumns(pen, part, map) {
  const { tile } = part;
  const { columns, marks, y0 } = tile;
  const [first, last] = itemRange(tile, part.a, part.b);
  const step = (tile.x1 - tile.x0) / tile.n;
  const edges = [];
  const place = (value) => map.bottom - (value + y0 - map.y0) * map.ky;
  let held = NaN; // value at the right edge of the path so far
  let right = 0;
  for (let k = first; k < last; k++) {
    const at = 4 * k;
    const left = toX(map, tile.x0 + k * step);
    if (marks[k] & (MARK.high | MARK.low)) noteEdges(edges, marks[k], k, left);
    const steady = columns[at + 1] === columns[at + 2];
    if (steady && columns[at] === held && columns[at + 3] === held) {
      right = left + step * map.kx;
      continue;
    }
    if (held === held) pen.lineTo(right, place(held));
    held = columns[at + 3];
    right = left + step * map.kx;
    if (marks[k] & MARK.empty || columns[at + 1] !== columns[at + 1]) {
      held = NaN;
      continue;
    }
    const x = middle(left + (step * map.kx) / 2);
    if (columns[at] === columns[at]) {
      if (k > first && columns[at - 1] === columns[at]) pen.lineTo(left, place(columns[at]));
      else pen.moveTo(left, place(columns[at]));
      if (!steady) pen.lineTo(x, place(columns[at]));
    } else {
      pen.moveTo(x, place(columns[at + 1]));
    }
    if (!steady) {
      pen.lineTo(x, place(columns[at + 1]));
      pen.lineTo(x, place(columns[at + 2]));
      if (held === held) pen.lineTo(x, place(held));
    }
  }
  if (held === held) pen.lineTo(right, place(held));
  return edges;
}

// Samples of a part, with one neighbour on each side: calls use(x, y, i), i of the neighbours is -1.
function eachSample({ tile, a, b }, use) {
  const [first, last] = itemRange(tile, a, b);
  if (first > 0) use(tile.x[first - 1], tile.y[first - 1], -1);
  else if (tile.before[0] === tile.before[0]) use(tile.before[0], tile.before[1], -1);
  for (let i = first; i < last; i++) use(tile.x[i], tile.y[i], i);
  if (last < tile.n) use(tile.x[last], tile.y[last], -1);
  else if (tile.after[0] === tile.after[0]) use(tile.after[0], tile.after[1], -1);
}

function lineSamples(pen, part, map) {
  const edges = [];
  let open = false;
  let lone = null;
  eachSample(part, (x, y) => {
    const px = toX(map, x);
    if (!Number.isFinite(y)) {
      if (!Number.isNaN(y)) edges.push(px, y > 0 ? 1 : -1);
      if (lone) dot(pen, lone[0], lone[1]);
      lone = null;
      open = false;
      return;
    }
    const py = toY(map, y);
    if (open) {
      pen.lineTo(px, py);
      lone = null;
    } else {
      pen.moveTo(px, py);
      lone = [px, py];
      open = true;
    }
  });
  if (lone) dot(pen, lone[0], lone[1]);
  return edges;
}

function holdSamples(pen, part, map) {
  const edges = [];
  let held = NaN;
  eachSample(part, (x, y) => {
    const px = toX(map, x);
    if (Number.isFinite(held)) pen.lineTo(px, toY(map, held));
    if (Number.isFinite(y)) {
      if (Number.isFinite(held)) pen.lineTo(px, toY(map, y));
      else dot(pen, px, toY(map, y)), pen.moveTo(px, toY(map, y));
    } else if (!Number.isNaN(y)) {
      edges.push(px, y > 0 ? 1 : -1);
    }
    held = y;
  });
  return edges;
}

// Squares of `size` pixels at the samples that can be seen.
export function dotPath(pen, { tile, a, b }, map, size) {
  const [first, last] = itemRange(tile, a, b);
  const half = size / 2;
  for (let i = first; i < last; i++) {
    const y = tile.y[i];
    if (Number.isFinite(y)) pen.rect(toX(map, tile.x[i]) - half, toY(map, y) - half, size, size);
  }
}

// A lane of states between the rows `top` and `bottom`: rectangles where the value is not 0. `half` takes
// the columns that hold a transition, `base` the line where the value is 0.
export function bandPaths(full, half, base, { tile, a, b }, map, top, bottom) {
  const height = bottom - top;
  let from = NaN;
  let kind = NaN; // 1 on, 0 off, 0.5 both, NaN nothing known
  const close = (end) => {
    const to = Math.max(from + 1, Math.round(end)); // whole pixels, so that nothing is half-toned by chance
    if (kind === 1) full.rect(from, top, to - from, height);
    else if (kind === 0.5) half.rect(from, top, to - from, height);
    else if (kind === 0) base.rect(from, bottom - 1, to - from, 1);
  };
  const turn = (x, next) => {
    if (Object.is(next, kind)) return;
    close(x);
    from = Math.round(x);
    kind = next;
  };
  const state = (value) => (value === value ? Number(value >= 0.5) : NaN);
  if (tile.columns) {
    const step = (tile.x1 - tile.x0) / tile.n;
    const [first, last] = itemRange(tile, a, b);
    for (let k = first; k < last; k++) {
      const low = tile.columns[4 * k + 1] + tile.y0;
      const high = tile.columns[4 * k + 2] + tile.y0;
      const nothing = tile.marks[k] & MARK.empty;
      turn(toX(map, tile.x0 + k * step), nothing ? NaN : low === high ? state(low) : low < high ? 0.5 : NaN);
    }
    close(toX(map, tile.x0 + last * step));
    return;
  }
  let end = NaN;
  eachSample({ tile, a, b }, (x, y) => {
    end = toX(map, x);
    turn(end, state(y));
  });
  close(end);
}

// Bars from the zero line, with a pixel between them; as an outline, the upper edge only.
export function barPath(pen, tile, map, outline) {
  const width = (tile.x1 - tile.x0) / tile.n;
  const zero = toY(map, 0);
  for (let i = 0; i < tile.n; i++) {
    const left = toX(map, tile.x0 + i * width);
    const right = toX(map, tile.x0 + (i + 1) * width);
    const top = toY(map, tile.y[i]);
    if (!outline) {
      pen.rect(left + 0.5, top, Math.max(1, right - left - 1), zero - top);
      continue;
    }
    if (i === 0) pen.moveTo(left, zero);
    pen.lineTo(left, top);
    pen.lineTo(right, top);
    if (i === tile.n - 1) pen.lineTo(right, zero);
  }
}

// Small triangles at the upper or lower edge where a curve goes to infinity.
export function edgePath(pen, edges, map, size) {
  for (let i = 0; i < edges.length; i += 2) {
    const tip = edges[i + 1] > 0 ? map.top : map.bottom;
    const base = tip + edges[i + 1] * size;
    pen.moveTo(edges[i], tip);
    pen.lineTo(edges[i] - size / 2, base);
    pen.lineTo(edges[i] + size / 2, base);
    pen.lineTo(edges[i], tip);
  }
}
