// One plot area: uPlot's axes, scales, cursor and selection around curves that are painted here.
/* global uPlot */
import { CanvasSurface } from "./surface.js";
import { multiples, niceStep, numberTexts, timeStep, timeTexts } from "./ticks.js";
import { palette } from "./palette.js";
import { paintCurves } from "./paint.js";
import { paintCursors, paintMarks, paintObjects } from "./annotations.js";

const RIGHT_WIDTH = 58;
const FONT = "12px system-ui, sans-serif";
// uPlot's own scales stay at 0 to 1: its ticks know neither 3 as a step nor values of 1e18.
const SCALE = { time: false, auto: false, range: [0, 1], min: 0, max: 1 };

// The owner is a card: it has pane(ranges), timeFormat, and takes select, hover, pan, wheel and reset.
export class Pane {
  x = [0, 1];
  l = [0, 1];
  r = [0, 1];
  curves = [];
  #moving = false; // the cursor is moved by the page, not by the reader
  #drawn = "";

  constructor(card, host, index) {
    this.titled = !!host.firstChild;
    this.card = card;
    this.index = index;
    this.host = host;
    this.u = new uPlot(this.#options(), [[0, 1], [0, 1], [0, 1]], host);
    this.#listen();
  }

  get ratio() {
    return uPlot.pxRatio;
  }

  // Size of the plot area in device pixels.
  get area() {
    return { width: Math.round(this.u.bbox.width), height: Math.round(this.u.bbox.height) };
  }

  #options() {
    const ink = (name) => () => palette.ink[name];
    const axis = (scale, more) => ({
      scale, font: FONT, stroke: ink("soft"), labelFont: FONT, labelSize: 18, gap: 4,
      incrs: [1], space: 1, splits: () => this.#shares(scale), values: () => this.ticks(scale).texts,
      grid: { stroke: ink("grid"), width: 1 }, ticks: { stroke: ink("line"), width: 1, size: 5 },
      border: { show: true, stroke: ink("line"), width: 1 },
      ...more,
    });
    const { width, height } = this.host.getBoundingClientRect();
    return {
      width: Math.max(80, Math.floor(width)), height: Math.max(60, Math.floor(height)),
      padding: [this.titled ? 20 : 8, null, 0, null], legend: { show: false },
      scales: {
        x: SCALE, l: SCALE, r: SCALE,
      },
      axes: [
        axis("x", { size: () => this.card.xAxisHeight(this) }),
        axis("l", { size: () => this.card.app.leftWidth }),
        axis("r", { side: 1, size: () => (this.card.rightAxis ? RIGHT_WIDTH : 20), grid: { show: false } }),
      ],
      series: [{}, ...["l", "r"].map((scale) => ({ scale, paths: () => null, points: { show: false } }))],
      cursor: {
        points: { show: false }, drag: { x: true, y: true, dist: 5, uni: 25, setScale: false },
        bind: {
          mousedown: (u, target, next) => (event) => {
            if (event.button === 0 && event.shiftKey) this.#pan(event);
            else next(event);
          },
          dblclick: () => () => this.card.reset(this),
          mouseleave: () => () => this.moveCursor(this.card.cursorPlace()),
        },
      },
      hooks: {
        draw: [(u) => this.#paint(u)],
        setCursor: [(u) => {
          if (!this.#moving && u.cursor.left >= 0) this.card.hover(this.#at("x", u.cursor.left / u.over.clientWidth));
        }],
        setSelect: [(u) => this.#selected(u)],
      },
    };
  }

  #step(scale, low, high, length) {
    const wanted = this.card.tick(scale, this);
    if (wanted && (high - low) / wanted <= 50) return wanted;
    const span = high - low;
    if (!(span > 0)) return 1;
    if (scale !== "x") return niceStep((span * 42) / length);
    const format = this.card.timeFormat;
    const room = format === "datetime" ? 95 : format ? 78 : 66;
    return format ? timeStep((span * room) / length, format) : niceStep((span * room) / length);
  }

  #texts(scale, ticks, step) {
    if (scale === "x") {
      if (this.card.xAxisHeight(this) < 20) return [];
      return this.card.timeFormat ? timeTexts(ticks, this.card.timeFormat, step) : numberTexts(ticks, step);
    }
    return this.card.stateTexts(scale, ticks, this) ?? numberTexts(ticks, step);
  }

  // The value at a share of an axis.
  #at(scale, share) {
    const [low, high] = this[scale];
    return low + share * (high - low);
  }

  #shares(scale) {
    const [low, high] = this[scale];
    return this.ticks(scale).ticks.map((tick) => (tick - low) / (high - low));
  }

  // Places and texts of an axis, as they are drawn.
  ticks(scale) {
    if ((scale === "r" && !this.hasRight) || (scale === "l" && this.card.kind === "bool")) return { ticks: [], texts: [] };
    const { width, height } = this.u.bbox;
    const step = this.#step(scale, ...this[scale], (scale === "x" ? width : height) / this.ratio);
    const ticks = multiples(...this[scale], step);
    return { ticks, texts: this.#texts(scale, ticks, step) };
  }

  get hasRight() {
    return this.curves.some((curve) => curve.side === "right");
  }

  // Draws at these ranges; returns at once where nothing has changed.
  draw(ranges, curves, stamp) {
    const { x, l, r } = ranges;
    const key = `${x} ${l} ${r} ${stamp} ${this.u.width} ${this.u.height}`;
    if (key === this.#drawn) return;
    this.#drawn = key;
    this.x = x;
    this.l = l;
    this.r = r;
    this.curves = curves;
    const u = this.u;
    this.#moving = true;
    u.batch(() => u.redraw(true, true)); // all of it, axes too, and at once
    this.moveCursor(this.card.cursorPlace());
    this.#moving = false;
  }

  // Maps for painting into a box of pixels, one for each y axis.
  maps(box) {
    const one = (y) => ({
      left: box.left, top: box.top, right: box.left + box.width, bottom: box.top + box.height,
      x0: this.x[0], kx: box.width / (this.x[1] - this.x[0]), y0: y[0], ky: box.height / (y[1] - y[0]),
    });
    return { left: one(this.l), right: one(this.r) };
  }

  paintOn(surface, box) {
    const maps = this.maps(box);
    surface.clip(box.left, box.top, box.width, box.height, () => {
      const objects = this.card.objectsOn(this);
      paintMarks(surface, objects, maps.left);
      paintCurves(surface, this.curves, this.card.tiles, maps, this.x, this.area.width, this.card.kind);
      paintObjects(surface, objects, maps.left);
      paintCursors(surface, this.card.cursors, maps.left);
    });
  }

  #paint(u) {
    this.paintOn(new CanvasSurface(u.ctx, this.ratio), u.bbox);
  }

  // Shows the reader's cursor at a place of the x axis; null hides it.
  moveCursor(place) {
    const inside = place !== null && place >= this.x[0] && place <= this.x[1];
    this.#moving = true;
    this.u.setCursor({ left: inside ? ((place - this.x[0]) / (this.x[1] - this.x[0])) * this.u.over.clientWidth : -10, top: this.u.cursor.top }, false);
    this.#moving = false;
  }

  #selected(u) {
    const { left, top, width, height } = u.select;
    u.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
    if (width < 3 && height < 3) return;
    const full = { x: width >= u.over.clientWidth - 1, y: height >= u.over.clientHeight - 1 };
    const x = [left, left + width].map((px) => px / u.over.clientWidth);
    const y = [top + height, top].map((px) => 1 - px / u.over.clientHeight);
    const range = (scale, shares) => shares.map((share) => this.#at(scale, share));
    this.card.select(this, {
      x: full.x ? null : range("x", x), l: full.y ? null : range("l", y), r: full.y ? null : range("r", y),
    });
  }

  // Shift and drag: the picture follows the pointer.
  #pan(event) {
    const start = { x: event.clientX, y: event.clientY, ranges: { x: this.x, l: this.l, r: this.r } };
    const width = this.u.over.clientWidth;
    const height = this.u.over.clientHeight;
    const move = (e) => this.card.drag(this, start.ranges, (start.x - e.clientX) / width, (e.clientY - start.y) / height);
    const end = () => {
      removeEventListener("mousemove", move);
      removeEventListener("mouseup", end);
    };
    addEventListener("mousemove", move);
    addEventListener("mouseup", end);
  }

  #listen() {
    this.u.root.addEventListener("wheel", (event) => {
      if (event.ctrlKey) return; // the browser's own zoom
      event.preventDefault();
      const box = this.u.over.getBoundingClientRect();
      const at = { x: (event.clientX - box.left) / box.width, y: 1 - (event.clientY - box.top) / box.height };
      const axis = event.altKey ? "lr" : at.x < 0 ? "l" : at.x > 1 ? "r" : "x";
      const delta = (event.deltaY || event.deltaX) * (event.deltaMode === 1 ? 30 : 1);
      this.card.wheel(this, axis, at, Math.max(-400, Math.min(400, delta)), event.shiftKey);
    }, { passive: false });
    new ResizeObserver(() => {
      const { width, height } = this.host.getBoundingClientRect();
      if (width > 80 && height > 60) {
        this.u.setSize({ width: Math.floor(width), height: Math.floor(height) });
        this.card.changed();
      }
    }).observe(this.host);
  }
}
