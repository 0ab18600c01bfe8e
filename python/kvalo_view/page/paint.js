// Paints the curves of one plot area, whatever their form, on a surface.
import { FLAG, FORM } from "./protocol.js";
import { cellRange, gridPicture, pixelPicture } from "./raster.js";
import { bandPaths, barPath, dotPath, edgePath, linePath, toX, toY } from "./line-paths.js";
import { itemRange } from "./tiles.js";
import { palette } from "./palette.js";

// Samples at least so many CSS pixels apart are shown as points on their line.
const POINT_GAP = 8;

// Pictures of tiles are made once and kept with the tile and what they depend on.
const pictures = new WeakMap();
function pictureOf(tile, key, make) {
  const kept = pictures.get(tile);
  if (kept?.key === key) return kept.picture;
  const picture = make();
  pictures.set(tile, { key, picture });
  return picture;
}

function paintPicture(surface, tile, picture, map) {
  const left = toX(map, tile.x0);
  const top = toY(map, tile.y1);
  surface.image(picture, left, top, toX(map, tile.x1) - left, toY(map, tile.y0) - top);
}

// The span of colours of a grid: [low, high], kept with its tile.
const ranges = new WeakMap();
export function gridRange(tile, decibel) {
  if (!ranges.has(tile)) ranges.set(tile, cellRange(tile.cells, decibel));
  return ranges.get(tile);
}

// How far samples lie apart on screen decides whether they get points.
function sparse(part, map, r) {
  const [first, last] = itemRange(part.tile, part.a, part.b);
  return (last - first) * POINT_GAP * r < map.right - map.left;
}

function paintLine(surface, curve, part, map) {
  const r = surface.ratio;
  let edges = [];
  // Dense columns overlap, and strokes of one pixel are drawn many times as fast as wider ones.
  const style = { stroke: curve.color, width: part.tile.form === FORM.columns ? r : 1.5 * r, dash: curve.dash.map((d) => d * r) };
  surface.path((pen) => {
    edges = linePath(pen, part, map) ?? [];
  }, style);
  if (part.tile.form === FORM.samples && sparse(part, map, r)) {
    surface.path((pen) => dotPath(pen, part, map, 4 * r), { fill: curve.color });
  }
  if (edges.length) surface.path((pen) => edgePath(pen, edges, map, 7 * r), { fill: curve.color });
}

// A curve: { key, color, dash, style, lane }; `map` of the axis it belongs to; kind of the chart.
function paintCurve(surface, curve, part, map, kind, lanes) {
  const { tile } = part;
  const r = surface.ratio;
  if (tile.flags & FLAG.nothing && !tile.n && !Number.isFinite(tile.before[0])) return;
  if (kind === "bool") {
    const height = (map.bottom - map.top) / lanes;
    const bottom = map.bottom - (lanes - 1 - curve.lane) * height;
    const half = [];
    const base = [];
    const collect = (list) => ({ rect: (...args) => list.push(args) });
    surface.path((pen) => bandPaths(pen, collect(half), collect(base), part, map, bottom - 0.62 * height, bottom - 0.12 * height), { fill: curve.color });
    surface.path((pen) => half.forEach((args) => pen.rect(...args)), { fill: curve.color, alpha: 0.5 });
    surface.path((pen) => base.forEach((args) => pen.rect(...args)), { fill: curve.color });
  } else if (tile.form === FORM.bars) {
    const outline = curve.style === "outline";
    surface.path((pen) => barPath(pen, tile, map, outline), outline
      ? { stroke: curve.color, width: 1.5 * r, dash: curve.dash.map((d) => d * r) }
      : { fill: curve.color, alpha: curve.only ? 1 : 0.7 });
  } else if (tile.form === FORM.mask || tile.form === FORM.pixels) {
    const size = Math.max(2, Math.round(2 * r));
    paintPicture(surface, tile, pictureOf(tile, curve.color + size, () => pixelPicture(tile, curve.color, size)), map);
  } else if (tile.form === FORM.grid) {
    const decibel = kind === "spectro";
    paintPicture(surface, tile, pictureOf(tile, "", () => gridPicture(tile, gridRange(tile, decibel), decibel, !decibel)), map);
  } else if (tile.flags & FLAG.dots) {
    surface.path((pen) => dotPath(pen, part, map, 3 * r), { fill: curve.color });
  } else if (tile.form === FORM.columns || tile.form === FORM.hold || tile.form === FORM.samples) {
    paintLine(surface, curve, part, map);
  }
}

// Paints all curves of a plot area. `maps` has one map for each axis side.
export function paintCurves(surface, curves, tiles, maps, range, px, kind) {
  const lanes = curves.length;
  for (const curve of curves) {
    if (curve.hidden) continue;
    const map = maps[curve.side] ?? maps.left;
    const parts = tiles.pick(curve.key, range[0], range[1], px);
    for (const part of parts) {
      const left = toX(map, part.a);
      const width = toX(map, part.b) - left;
      if (parts.length === 1) paintCurve(surface, curve, part, map, kind, lanes);
      else surface.clip(left, map.top, width, map.bottom - map.top, () => paintCurve(surface, curve, part, map, kind, lanes));
    }
  }
  if (kind === "bool") paintLaneNames(surface, curves, maps.left);
}

function paintLaneNames(surface, curves, map) {
  const height = (map.bottom - map.top) / Math.max(1, curves.length);
  for (const curve of curves) {
    const top = map.bottom - (curves.length - curve.lane) * height;
    surface.text(curve.label, map.left + 6 * surface.ratio, top + 0.2 * height, {
      fill: palette.ink.text, size: Math.max(9, Math.min(12, (0.3 * height) / surface.ratio)), back: palette.ink.back,
    });
  }
}
