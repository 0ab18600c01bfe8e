// Saves what a chart shows: picture as PNG or SVG, numbers as CSV.
import { CanvasSurface } from "./surface.js";
import { SvgSurface } from "./svg-surface.js";
import { download, make } from "./dom.js";
import { itemRange } from "./tiles.js";
import { palette } from "./palette.js";

const ROW = 20; // height of a line of the legend

const fileName = (card, ending) => `${(card.title.replace(/[^\p{L}\p{N}]+/gu, "-").slice(0, 60) || "chart").replace(/^-|-$/g, "")}.${ending}`;

// The legend in rows above the plot; returns its height.
function paintLegend(surface, card, width, r) {
  let x = 10;
  let y = ROW / 2 + 2;
  for (const curve of card.curves) {
    if (curve.hidden) continue;
    const needed = 40 + 7 * curve.shown.length;
    if (x + needed > width && x > 10) [x, y] = [10, y + ROW];
    surface.path((pen) => {
      pen.moveTo(x * r, y * r);
      pen.lineTo((x + 22) * r, y * r);
    }, { stroke: curve.color, width: 3 * r, dash: curve.dash.map((d) => d * r) });
    surface.text(curve.shown, (x + 28) * r, y * r, { fill: palette.ink.text, size: 13 });
    x += needed;
  }
  return y + ROW / 2 + 2;
}

function paintAxes(surface, pane, box, r) {
  const { text, soft, grid, line } = palette.ink;
  const lines = (draw, stroke) => surface.path(draw, { stroke, width: Math.max(1, Math.round(r)) });
  const sides = pane.hasRight ? ["l", "r"] : ["l"];
  const x = pane.ticks("x");
  const places = (scale, ticks) => ticks.map((tick) => {
    const [low, high] = pane[scale];
    const share = (tick - low) / (high - low);
    return scale === "x" ? box.left + share * box.width : box.top + (1 - share) * box.height;
  });
  lines((pen) => {
    for (const px of places("x", x.ticks)) pen.moveTo(px, box.top), pen.lineTo(px, box.top + box.height);
    for (const py of places("l", pane.ticks("l").ticks)) pen.moveTo(box.left, py), pen.lineTo(box.left + box.width, py);
  }, grid);
  lines((pen) => pen.rect(box.left, box.top, box.width, box.height), line);
  places("x", x.ticks).forEach((px, i) => String(x.texts[i] ?? "").split("\n").forEach((part, k) =>
    surface.text(part, px, box.top + box.height + (13 + 16 * k) * r, { fill: soft, size: 12, align: "center" })));
  for (const side of sides) {
    const { ticks, texts } = pane.ticks(side);
    places(side, ticks).forEach((py, i) => surface.text(String(texts[i]), side === "l" ? box.left - 6 * r : box.left + box.width + 6 * r, py, {
      fill: soft, size: 12, align: side === "l" ? "right" : "left",
    }));
  }
  return text;
}

// Size of the whole picture in CSS pixels, and how to paint it.
function composition(card) {
  const panes = card.panes;
  const width = panes[0].u.width;
  const rows = Math.ceil((card.curves.reduce((sum, curve) => sum + 40 + 7 * curve.shown.length, 10)) / width);
  const legend = ROW * Math.max(1, rows) + 6;
  const height = legend + panes.reduce((sum, pane) => sum + pane.u.height, 0) + (card.xlabel.hidden ? 0 : ROW);
  const paint = (surface, r) => {
    paintLegend(surface, card, width, r);
    let top = legend;
    for (const pane of panes) {
      const { left, top: inset, width: w, height: h } = pane.u.bbox;
      const scale = r / pane.ratio;
      const box = { left: left * scale, top: top * r + inset * scale, width: w * scale, height: h * scale };
      paintAxes(surface, pane, box, r);
      pane.paintOn(surface, box);
      top += pane.u.height;
    }
    if (!card.xlabel.hidden) surface.text(card.xlabel.textContent, (width / 2) * r, (height - ROW / 2) * r, { fill: palette.ink.soft, size: 12, align: "center" });
  };
  return { width, height, paint };
}

function pictureCanvas(card) {
  if (!card.panes) return card.canvas ?? null;
  const { width, height, paint } = composition(card);
  const r = card.panes[0].ratio;
  const canvas = make("canvas", { width: Math.round(width * r), height: Math.round(height * r) });
  const context = canvas.getContext("2d");
  context.fillStyle = palette.ink.back;
  context.fillRect(0, 0, canvas.width, canvas.height);
  paint(new CanvasSurface(context, r), r);
  return canvas;
}

// The numbers behind the picture, where there is no server to ask for the samples.
function heldNumbers(card) {
  const quoted = (text) => `"${text.replaceAll('"', '""')}"`;
  const lines = ["series,x,first,min,max,last"];
  const [a, b] = card.xRange ?? [-Infinity, Infinity];
  for (const curve of card.curves) {
    if (curve.hidden) continue;
    for (const { tile, a: from, b: to } of card.tiles.pick(curve.key, a, b, 2000)) {
      const [first, last] = itemRange(tile, from, to);
      for (let i = first; i < last; i++) {
        const x = tile.columns ? tile.x0 + ((i + 0.5) * (tile.x1 - tile.x0)) / tile.n : tile.x?.[i];
        const values = tile.columns ? [0, 1, 2, 3].map((k) => tile.columns[4 * i + k] + tile.y0) : Array(4).fill(tile.y?.[i]);
        if (x !== undefined) lines.push([quoted(curve.label), x, ...values].join(","));
      }
    }
  }
  return `${lines.join("\n")}\n`;
}

export function exportCard(app, card, format) {
  if (format === "csv") {
    const range = card.xRange;
    if (app.source.offline) download(fileName(card, "csv"), heldNumbers(card), "text/csv");
    else make("a", { href: `chart/${card.id}.csv${range && card.timeFormat ? `?t0=${range[0]}&t1=${range[1]}` : ""}`, download: fileName(card, "csv") }).click();
  } else if (format === "svg") {
    const { width, height, paint } = composition(card);
    const surface = new SvgSurface(width, height, palette.ink.back);
    paint(surface, 1);
    download(fileName(card, "svg"), surface.toString(), "image/svg+xml");
  } else {
    const canvas = pictureCanvas(card);
    if (canvas) canvas.toBlob((blob) => download(fileName(card, "png"), blob, "image/png"));
  }
}
