// Draws lines and surfaces in space with three.js. One WebGL context serves all charts: browsers allow few.
import * as THREE from "three";

const BOX = [1.5, 1, 1.5]; // half-sizes of the box that all data are scaled into: right, up, to the back
const START = { around: 0.7, up: 0.45, far: 7.4 };

let shared = null;
function renderer() {
  shared ??= new THREE.WebGLRenderer({ antialias: true, alpha: true });
  return shared;
}

function span(values, offset) {
  let low = Infinity;
  let high = -Infinity;
  for (const value of values) {
    if (value < low) low = value;
    if (value > high) high = value;
  }
  return low <= high ? [low + offset, high + offset] : [0, 1];
}

const join = (a, b) => [Math.min(a[0], b[0]), Math.max(a[1], b[1])];
const scaler = ([low, high], half, offset = 0) => {
  const k = high > low ? (2 * half) / (high - low) : 0;
  return (value) => (value + offset - (low + high) / 2) * k;
};

export class Scene {
  // looks: palette, heat and valueText of the page; this file is built apart and shares no module with it.
  constructor(canvas, looks) {
    renderer(); // throws where there is no WebGL
    this.looks = looks;
    this.context = canvas.getContext("2d");
    this.camera = new THREE.PerspectiveCamera(36, 1, 0.1, 50);
    this.reset();
  }

  reset() {
    this.view = { ...START };
  }

  turn(around, up) {
    this.view.around -= around;
    this.view.up = Math.max(-1.5, Math.min(1.5, this.view.up + up));
  }

  zoom(factor) {
    this.view.far = Math.max(1.5, Math.min(20, this.view.far * factor));
  }

  draw(curves, tiles, chart, kind, ratio) {
    const { width, height } = this.context.canvas;
    const scene = new THREE.Scene();
    const made = kind === "mesh" ? this.#mesh(scene, tiles.newest(0)) : this.#lines(scene, curves, tiles);
    this.#box(scene);
    const { around, up, far } = this.view;
    this.camera.aspect = width / height;
    this.camera.position.set(far * Math.sin(around) * Math.cos(up), far * Math.sin(up), far * Math.cos(around) * Math.cos(up));
    this.camera.lookAt(0, -0.15, 0);
    this.camera.updateProjectionMatrix();
    const gl = renderer();
    gl.setPixelRatio(1);
    gl.setSize(width, height, false);
    gl.setClearColor(0, 0);
    gl.render(scene, this.camera);
    this.context.clearRect(0, 0, width, height);
    this.context.drawImage(gl.domElement, 0, 0);
    if (made) this.#labels(made, chart, kind, ratio);
    scene.traverse((object) => {
      object.geometry?.dispose();
      object.material?.dispose();
    });
  }

  #box(scene) {
    const shape = new THREE.EdgesGeometry(new THREE.BoxGeometry(...BOX.map((half) => 2 * half)));
    scene.add(new THREE.LineSegments(shape, new THREE.LineBasicMaterial({ color: this.looks.palette.theme === "dark" ? 0x4d545d : 0xb9bfc6 })));
  }

  // z of the data points up; y goes to the back. Returns the spans of the data's x, y and z.
  #lines(scene, curves, tiles) {
    const drawn = curves.map((curve) => [curve, tiles.newest(curve.key)]).filter(([curve, tile]) => tile?.z && tile.n && !curve.hidden);
    if (!drawn.length) return null;
    const offsets = ({ after, y1 }) => [after[0], after[1], y1].map((v) => (Number.isFinite(v) ? v : 0));
    const spans = drawn
      .map(([, tile]) => ["x", "y", "z"].map((axis, i) => span(tile[axis], offsets(tile)[i])))
      .reduce((a, b) => a.map((one, i) => join(one, b[i])));
    for (const [curve, tile] of drawn) {
      const [ox, oy, oz] = offsets(tile);
      const place = [scaler(spans[0], BOX[0], ox), scaler(spans[1], BOX[2], oy), scaler(spans[2], BOX[1], oz)];
      let points = [];
      const material = new THREE.LineBasicMaterial({ color: curve.color });
      const flush = () => {
        if (points.length) scene.add(new THREE.Line(new THREE.BufferGeometry().setFromPoints(points), material));
        points = [];
      };
      for (let i = 0; i < tile.n; i++) {
        const at = [place[0](tile.x[i]), place[2](tile.z[i]), -place[1](tile.y[i])];
        if (at.every(Number.isFinite)) points.push(new THREE.Vector3(...at));
        else flush();
      }
      flush();
    }
    return spans;
  }

  // Values point up. Returns the spans of x, z and the values.
  #mesh(scene, tile) {
    if (!tile?.cells || tile.n < 2 || tile.m < 2) return null;
    const values = span(tile.cells, 0);
    const spans = [span(tile.x, 0), span(tile.z, 0), values];
    const place = [scaler(spans[0], BOX[0]), scaler(spans[1], BOX[2]), scaler(values, BOX[1])];
    const positions = new Float32Array(tile.n * tile.m * 3);
    const colors = new Float32Array(positions.length);
    for (let row = 0, i = 0; row < tile.m; row++) {
      for (let column = 0; column < tile.n; column++, i++) {
        const value = tile.cells[i];
        positions.set([place[0](tile.x[column]), Number.isFinite(value) ? place[2](value) : 0, -place[1](tile.z[row])], 3 * i);
        const word = this.looks.heat[Math.round((255 * (value - values[0])) / (values[1] - values[0] || 1)) || 0];
        colors.set([word & 255, (word >> 8) & 255, (word >> 16) & 255].map((c) => (c / 255) ** 2.2), 3 * i);
      }
    }
    const corners = [];
    for (let row = 0; row + 1 < tile.m; row++) {
      for (let column = 0; column + 1 < tile.n; column++) {
        const i = row * tile.n + column;
        const four = [i, i + 1, i + tile.n, i + tile.n + 1];
        if (four.every((k) => Number.isFinite(tile.cells[k]))) corners.push(four[0], four[1], four[2], four[1], four[3], four[2]);
      }
    }
    const shape = new THREE.BufferGeometry();
    shape.setAttribute("position", new THREE.BufferAttribute(positions, 3));
    shape.setAttribute("color", new THREE.BufferAttribute(colors, 3));
    shape.setIndex(corners);
    scene.add(new THREE.Mesh(shape, new THREE.MeshBasicMaterial({ vertexColors: true, side: THREE.DoubleSide })));
    return spans;
  }

  // Both ends and the name of each axis, at the edges of the box that are nearest to the reader.
  #labels(spans, chart, kind, ratio) {
    const { width, height } = this.context.canvas;
    const { valueText } = this.looks;
    const c = this.context;
    c.font = `${12 * ratio}px system-ui, sans-serif`;
    c.fillStyle = this.looks.palette.ink.text;
    c.textAlign = "center";
    c.textBaseline = "middle";
    const { around } = this.view;
    const [right, back] = [Math.sin(around) >= 0 ? 1 : -1, Math.cos(around) >= 0 ? 1 : -1];
    const put = (text, x, y, z) => {
      const at = new THREE.Vector3(x, y, z).project(this.camera);
      c.fillText(text, ((at.x + 1) / 2) * width, ((1 - at.y) / 2) * height);
    };
    const names = kind === "mesh" ? ["x", "z", "value"] : [...(chart.series.length < 3 ? ["time"] : []), ...chart.series.map((series) => series.name), ""];
    const [bx, by, bz] = BOX;
    const out = 1.14;
    spans[0].forEach((v, i) => put(valueText(Number(v.toPrecision(3))), (i ? 0.9 : -0.9) * bx, -by, back * bz * out));
    put(names[0], 0, -by * 1.05, back * bz * (out + 0.1));
    spans[1].forEach((v, i) => put(valueText(Number(v.toPrecision(3))), right * bx * out, -by, (i ? -0.9 : 0.9) * bz));
    put(names[1], right * bx * (out + 0.1), -by * 1.05, 0);
    spans[2].forEach((v, i) => put(valueText(Number(v.toPrecision(3))), -right * bx * out, (i ? 0.9 : -0.9) * by, back * bz));
    put(names[2], -right * bx * (out + 0.06), 0, back * bz);
  }
}
