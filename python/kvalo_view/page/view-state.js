// What the reader looks at: page and ranges, with a history, and as text for the address.

const MERGE_MS = 600;
const DEPTH = 200;

const empty = () => ({ time: null, charts: {} });

// A range as the address holds it, and back; null when it is not one.
const rangeText = ([a, b]) => `${a},${b}`;
function range(text) {
  const parts = (text ?? "").split(",").map(Number);
  return parts.length === 2 && parts[0] < parts[1] && parts.every(Number.isFinite) ? parts : null;
}

// `now` is never changed in place: { time: [a, b] or null for all, charts: { id: { x, l, r } } }.
export class Views {
  #past = [];
  #future = [];
  #last = { kind: "", at: 0 };
  now = empty();
  page = null; // id of the page shown
  extra = {}; // other texts of the address: cursors, theme

  // Changes like the last one within a moment (a wheel, a drag) are one step of the history.
  change(next, kind = "") {
    const at = performance.now();
    if (!kind || kind !== this.#last.kind || at - this.#last.at > MERGE_MS) {
      this.#past.push(this.now);
      if (this.#past.length > DEPTH) this.#past.shift();
    }
    this.#last = { kind, at };
    this.#future = [];
    this.now = next;
  }

  setTime(time, kind) {
    this.change({ ...this.now, time }, kind);
  }

  // Axes of one chart: { x, l, r }, null to go back to the chart's own range.
  setChart(id, axes, kind, time = this.now.time) {
    const charts = { ...this.now.charts, [id]: { ...this.now.charts[id], ...axes } };
    this.change({ time, charts }, kind);
  }

  axes(id) {
    return this.now.charts[id] ?? {};
  }

  undo() {
    return this.#step(this.#past, this.#future);
  }

  redo() {
    return this.#step(this.#future, this.#past);
  }

  get canUndo() {
    return this.#past.length > 0;
  }

  get canRedo() {
    return this.#future.length > 0;
  }

  #step(from, to) {
    if (!from.length) return false;
    to.push(this.now);
    this.now = from.pop();
    this.#last.kind = "";
    return true;
  }

  toHash() {
    const parts = new URLSearchParams();
    if (this.page !== null) parts.set("page", this.page);
    if (this.now.time) parts.set("t", rangeText(this.now.time));
    for (const [id, axes] of Object.entries(this.now.charts)) {
      for (const axis of ["x", "l", "r"]) if (axes[axis]) parts.set(`${axis}.${id}`, rangeText(axes[axis]));
    }
    for (const [key, text] of Object.entries(this.extra)) if (text) parts.set(key, text);
    return parts.toString().replaceAll("%2C", ",");
  }

  // Takes over an address; what is not a view in it is ignored.
  fromHash(hash) {
    const parts = new URLSearchParams(hash.replace(/^#/, ""));
    const next = { ...empty(), time: range(parts.get("t")) };
    this.extra = {};
    for (const [key, text] of parts) {
      const axis = /^([xlr])\.(\d{1,20})$/.exec(key);
      if (axis) next.charts[axis[2]] = { ...next.charts[axis[2]], [axis[1]]: range(text) };
      else if (key !== "page" && key !== "t") this.extra[key] = text;
    }
    this.page = parts.get("page") ?? this.page;
    this.change(next);
  }
}
