// The frames between page and server as docs/view-protocol.md lays them out.

export const FORM = {
  columns: 1, hold: 2, samples: 3, mask: 4, pixels: 5, grid: 6, bars: 7, path3: 8, mesh: 9,
};
export const KIND = { view: 1, probe: 2, stats: 3, ack: 4, visible: 5, span: 6 };
export const FLAG = {
  overview: 1, push: 2, hold: 4, dots: 8, decimated: 16, nothing: 32, descending: 64,
};
export const MARK = { empty: 1, nan: 2, high: 4, low: 8 };

const HEADER = 96;

// A request of 48 bytes.
export function request(kind, fields) {
  const { flags = 0, seq = 0, chart = 0, width = 0, height = 0 } = fields;
  const view = new DataView(new ArrayBuffer(48));
  view.setUint8(0, kind);
  view.setUint8(1, flags);
  view.setUint32(4, seq, true);
  view.setUint32(8, chart, true);
  view.setUint16(12, width, true);
  view.setUint16(14, height, true);
  ["a", "b", "c", "d"].forEach((name, i) => view.setFloat64(16 + 8 * i, fields[name] ?? NaN, true));
  return view.buffer;
}

// The columns of data after the header, by form: [name, type, items] for each array.
function layout(form, n, m) {
  switch (form) {
    case FORM.columns:
    case FORM.hold:
      return [["columns", Float32Array, 4 * n], ["marks", Uint8Array, n]];
    case FORM.samples:
    case FORM.bars:
      return [["x", Float64Array, n], ["y", Float64Array, n]];
    case FORM.mask:
      return [["bits", Uint32Array, m * Math.ceil(n / 32)]];
    case FORM.pixels:
      return [["places", Uint32Array, n]];
    case FORM.grid:
      return [["cells", Float32Array, n * m]];
    case FORM.path3:
      return [["x", Float32Array, n], ["y", Float32Array, n], ["z", Float32Array, n]];
    case FORM.mesh:
      return [["x", Float64Array, n], ["z", Float64Array, m], ["cells", Float32Array, n * m]];
    default:
      return null;
  }
}

// A tile, or null for a form that this page does not know or data shorter than the header says. With `bare`,
// the header alone.
export function parseTile(buffer, bare) {
  if (buffer.byteLength < HEADER) return null;
  const view = new DataView(buffer);
  const double = (at) => view.getFloat64(at, true);
  const tile = {
    form: view.getUint16(0, true), flags: view.getUint16(2, true), seq: view.getUint32(4, true),
    chart: view.getUint32(8, true), series: view.getUint32(12, true),
    x0: double(16), x1: double(24), y0: double(32), y1: double(40),
    n: view.getUint32(48, true), m: view.getUint32(52, true),
    before: [double(56), double(64)], after: [double(72), double(80)],
    ratio: view.getUint32(88, true), version: view.getUint32(92, true),
  };
  if (bare) return tile;
  const arrays = layout(tile.form, tile.n, tile.m);
  if (!arrays) return null;
  let offset = HEADER;
  for (const [name, type, items] of arrays) {
    if (offset + items * type.BYTES_PER_ELEMENT > buffer.byteLength) return null;
    tile[name] = new type(buffer, offset, items);
    offset += items * type.BYTES_PER_ELEMENT;
  }
  return tile;
}

const NUMBERS = { NaN: NaN, Infinity: Infinity, "-Infinity": -Infinity };
const TEXTS = new Set(["id", "name", "full_name", "title", "text", "xlabel", "error", "states", "page"]);

// JSON in which "NaN" and the infinities stand for numbers, but not where a text belongs.
export function readJson(text) {
  return JSON.parse(text, (key, value) =>
    typeof value === "string" && !TEXTS.has(key) && Object.hasOwn(NUMBERS, value) ? NUMBERS[value] : value);
}
