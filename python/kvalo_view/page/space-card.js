// A three-dimensional chart: a canvas turned by pointer or keys, or the server's picture where WebGL is missing.
import { Card } from "./card.js";
import { KIND } from "./protocol.js";
import { make } from "./dom.js";
import { heat, palette } from "./palette.js";
import { valueText } from "./ticks.js";

// three.js is fetched by pages with such a chart alone. A page in one file carries it as a global.
const loadScene = async () => globalThis.kvaloSpace ?? import("./space-scene.js");

const TURNS = { ArrowLeft: [-0.1, 0], ArrowRight: [0.1, 0], ArrowUp: [0, -0.1], ArrowDown: [0, 0.1] };

export class SpaceCard extends Card {
  #scene = null;
  #asked = "";
  #drawn = "";
  #picture = "";

  constructor(app, chart) {
    super(app, chart);
    this.canvas = make("canvas", { class: "space", "aria-hidden": "true" });
    this.picture = make("img", { class: "space", alt: "", hidden: true });
    this.body.append(this.canvas, this.picture);
    this.canvas.addEventListener("pointerdown", (event) => this.#drag(event));
    this.canvas.addEventListener("wheel", (event) => {
      if (event.ctrlKey) return;
      event.preventDefault();
      this.zoom(Math.exp(event.deltaY / 800));
    }, { passive: false });
    loadScene().then((module) => {
      this.#scene = new module.Scene(this.canvas, { palette, heat, valueText });
      this.changed();
    }).catch((error) => this.#fail(error));
  }

  // Without WebGL the server's picture stands in; without that, a sentence.
  #fail(error) {
    this.failed = true;
    this.canvas.hidden = true;
    if (this.app.state.pictures && !this.app.source.offline) {
      this.picture.hidden = false;
    } else {
      this.message.hidden = false;
      this.message.textContent = `This chart needs WebGL, which this browser does not offer (${error.message}). Turn on hardware acceleration, or save the chart from the script with kvalo.save().`;
    }
    this.changed();
  }

  frame() {
    const { clientWidth, clientHeight } = this.body;
    if (!clientWidth || !this.element.isConnected) return;
    const ratio = devicePixelRatio;
    const size = { width: Math.round(clientWidth * ratio), height: Math.round(clientHeight * ratio) };
    const ask = `${this.chart.series.length} ${this.chart.key}`;
    if (ask !== this.#asked && this.app.source.send(KIND.view, { chart: this.chart.key, ...size })) this.#asked = ask;
    this.summarize(null);
    if (this.failed) {
      // The version makes a changed picture another address.
      const address = `chart/${this.id}.png?v=${this.chart.series.map((series) => series.version).join(".")}`;
      if (!this.picture.hidden && address !== this.#picture) this.picture.src = this.#picture = address;
      this.picture.alt = this.title;
      return;
    }
    const key = `${size.width} ${size.height} ${this.stamp} ${palette.theme}`;
    if (!this.#scene || key === this.#drawn) return;
    this.#drawn = key;
    this.canvas.width = size.width;
    this.canvas.height = size.height;
    const curves = this.kind === "mesh" ? this.curves.slice(0, 1) : this.#lines();
    this.#scene.draw(curves, this.tiles, this.chart, this.kind, ratio);
  }

  // Every three series make one line.
  #lines() {
    return this.curves.filter((curve, i) => i % 3 === 0).map((curve, i) => ({ ...this.curves[i], key: i, hidden: curve.hidden }));
  }

  update(chart, fresh) {
    if (fresh) this.#asked = "";
    super.update(chart, fresh);
  }


  setSeen(seen) {
    this.seen = seen;
    if (seen) this.app.schedule();
  }

  #drag(event) {
    this.canvas.setPointerCapture(event.pointerId);
    let { clientX: x, clientY: y } = event;
    const move = (e) => {
      this.turn((e.clientX - x) / 150, (e.clientY - y) / 150);
      ({ clientX: x, clientY: y } = e);
    };
    this.canvas.addEventListener("pointermove", move);
    this.canvas.addEventListener("lostpointercapture", () => this.canvas.removeEventListener("pointermove", move), { once: true });
  }

  turn(around, up) {
    this.#scene?.turn(around, up);
    this.changed();
  }

  zoom(factor) {
    this.#scene?.zoom(factor);
    this.changed();
  }

  reset() {
    this.#scene?.reset();
    this.changed();
  }

  // Arrow keys turn the picture; true when the key was one.
  key(event) {
    const turn = TURNS[event.key];
    if (turn) this.turn(...turn);
    return !!turn;
  }

  ask() {}
}
