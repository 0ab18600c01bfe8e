// The view of a chart as a table of at most a hundred rows, for readers who do not see the picture.
import { FORM } from "./protocol.js";
import { make, openDialog } from "./dom.js";
import { itemRange } from "./tiles.js";
import { valueText } from "./ticks.js";

const ROWS = 100;

// Value, or lowest and highest value, of a curve between two places.
function cell(card, key, a, b) {
  let low = Infinity;
  let high = -Infinity;
  for (const { tile, a: from, b: to } of card.tiles.pick(key, a, b, 1)) {
    const [first, last] = itemRange(tile, from, to);
    for (let i = first; i < last; i++) {
      const values = tile.columns ? [tile.columns[4 * i + 1] + tile.y0, tile.columns[4 * i + 2] + tile.y0] : tile.y ? [tile.y[i], tile.y[i]] : [];
      if (!Number.isFinite(values[0])) continue;
      low = Math.min(low, values[0]);
      high = Math.max(high, values[1]);
    }
  }
  if (low > high) return "–";
  return low === high ? valueText(low) : `${valueText(low)} to ${valueText(high)}`;
}

// Places of the rows: the samples themselves where they are few, else even steps.
function places(card, curves, [a, b]) {
  const samples = new Set();
  for (const { key } of curves) {
    const tile = card.tiles.newest(key);
    if (tile?.form !== FORM.samples) return null;
    const [first, last] = itemRange(tile, a, b);
    if (samples.size + last - first > 2 * ROWS) return null;
    for (let i = first; i < last; i++) samples.add(tile.x[i]);
  }
  return samples.size && samples.size <= ROWS ? [...samples].sort((s, t) => s - t) : null;
}

function rowsOf(card, curves) {
  const bars = curves.map(({ key }) => card.tiles.newest(key)).find((tile) => tile?.form === FORM.bars);
  if (bars) return [...bars.x].slice(0, ROWS).map((x, i) => [valueText(x), ...curves.map(({ key }) => valueText(card.tiles.newest(key)?.y[i]))]);
  const [a, b] = card.xRange;
  const exact = places(card, curves, [a, b]);
  if (exact) return exact.map((x) => [card.placeText(x), ...curves.map(({ key }) => cell(card, key, x, x))]);
  const step = (b - a) / ROWS;
  return Array.from({ length: ROWS }, (_, i) => {
    const from = a + i * step;
    return [card.placeText(from), ...curves.map(({ key }) => cell(card, key, from, from + step))];
  });
}

export function openTable(card) {
  if (!card) return;
  const curves = card.curves.filter((curve) => !curve.hidden);
  const tiles = curves.map(({ key }) => card.tiles.newest(key));
  if (!card.panes || !tiles.some((tile) => tile?.columns || tile?.y)) {
    openDialog("Table of the view", make("p", {}, "This kind of chart has no table. Save it as CSV to see its numbers."));
    return;
  }
  const head = [card.timeFormat ? "Time" : card.xlabel.textContent || "x", ...curves.map((curve) => curve.label)];
  openDialog("Table of the view", make("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": card.title },
    make("table", {},
      make("caption", { class: "unseen" }, card.title),
      make("thead", {}, make("tr", {}, ...head.map((text) => make("th", { scope: "col" }, text)))),
      make("tbody", {}, ...rowsOf(card, curves).map(([first, ...rest]) =>
        make("tr", {}, make("th", { scope: "row" }, first), ...rest.map((text) => make("td", {}, text))))))));
}
