// Circles, rectangles, texts, flags, marks and data tips of the script, and the reader's A and B cursors.
import { annotationColor, palette } from "./palette.js";
import { valueText } from "./ticks.js";
import { toX, toY } from "./line-paths.js";

const SIZE = 12;

const vertical = (surface, x, map, style) =>
  surface.path((pen) => {
    pen.moveTo(x, map.top);
    pen.lineTo(x, map.bottom);
  }, style);

// A text beside a vertical line, on the side where there is room for it.
function lineLabel(surface, text, x, y, map, color) {
  const left = x > map.right - 90 * surface.ratio;
  surface.text(text, x + (left ? -5 : 5) * surface.ratio, y, {
    fill: color, size: SIZE, align: left ? "right" : "left", back: palette.ink.back,
  });
}

const PAINTERS = {
  mark(surface, object, map) {
    const left = toX(map, object.x);
    if (left > map.right || toX(map, object.x + object.width) < map.left) return;
    const x = Math.max(left, map.left) + 4 * surface.ratio;
    surface.text(object.text ?? "", x, map.bottom - 9 * surface.ratio, { fill: palette.ink.text, size: SIZE, back: palette.ink.back });
  },
  circle(surface, object, map, color, r) {
    const radius = Math.abs((object.diameter / 2) * map.kx);
    surface.circle(toX(map, object.x), toY(map, object.y), radius, { stroke: color, width: 2 * r });
  },
  rectangle(surface, object, map, color, r) {
    const left = toX(map, object.x - object.width / 2);
    const top = toY(map, object.y + object.height / 2);
    const size = [object.width * map.kx, object.height * map.ky];
    surface.path((pen) => pen.rect(left, top, ...size), { stroke: color, width: 2 * r });
  },
  text(surface, object, map, color) {
    surface.text(object.text, toX(map, object.x), toY(map, object.y), { fill: color, size: SIZE + 1, back: palette.ink.back });
  },
  flag(surface, object, map, color, r) {
    const style = { stroke: color, width: 1.5 * r, dash: [6 * r, 3 * r] };
    if (object.x !== null && object.x !== undefined) {
      const x = toX(map, object.x);
      vertical(surface, x, map, style);
      lineLabel(surface, object.text ?? "", x, map.top + 9 * r, map, color);
      return;
    }
    const y = toY(map, object.y);
    surface.path((pen) => {
      pen.moveTo(map.left, y);
      pen.lineTo(map.right, y);
    }, style);
    surface.text(object.text ?? "", map.right - 5 * r, y - 9 * r, { fill: color, size: SIZE, align: "right", back: palette.ink.back });
  },
  datatip(surface, object, map, color, r) {
    if (!Number.isFinite(object.y)) return;
    const [x, y] = [toX(map, object.x), toY(map, object.y)];
    surface.circle(x, y, 4 * r, { fill: color, stroke: palette.ink.back, width: r });
    const up = y - 14 * r < map.top ? 14 : -14;
    lineLabel(surface, `${object.text} ${valueText(object.y)}`, x, y + up * r, map, color);
  },
};

// Spans of time lie behind the curves, their texts before them.
export function paintMarks(surface, objects, map) {
  for (const object of objects) {
    if (object.type !== "mark") continue;
    const color = annotationColor(object.color);
    const left = toX(map, object.x);
    surface.path((pen) => pen.rect(left, map.top, object.width * map.kx, map.bottom - map.top), { fill: color, alpha: 0.16 });
  }
}

export function paintObjects(surface, objects, map) {
  for (const object of objects) {
    PAINTERS[object.type]?.(surface, object, map, annotationColor(object.color), surface.ratio);
  }
}

// The A and B cursors with the span between them.
export function paintCursors(surface, { a, b }, map) {
  const r = surface.ratio;
  const { accent } = palette.ink;
  if (a !== null && b !== null) {
    const left = toX(map, Math.min(a, b));
    surface.path((pen) => pen.rect(left, map.top, Math.abs(b - a) * map.kx, map.bottom - map.top), { fill: accent, alpha: 0.1 });
  }
  for (const [name, place] of [["A", a], ["B", b]]) {
    if (place === null) continue;
    const x = toX(map, place);
    if (x < map.left || x > map.right) continue;
    vertical(surface, x, map, { stroke: accent, width: 1.5 * r });
    lineLabel(surface, name, x, map.top + 9 * r, map, accent);
  }
}
