// The page as a whole: takes the server's state, keeps the cards of all charts, and draws one frame at a time.
import { applyTheme, onSystemTheme } from "./palette.js";
import { commands } from "./commands.js";
import { make } from "./dom.js";
import { PlotCard } from "./plot-card.js";
import { Speech } from "./speech.js";
import { Toolbar } from "./toolbar.js";
import { ValuesPanel } from "./values-panel.js";
import { Views } from "./view-state.js";

// Kinds that need more than the plot's card, and where it is fetched from with the first such chart.
const space = () => import("./space-card.js").then((module) => module.SpaceCard);
const OTHERS = { line3d: space, mesh: space, synoptic: () => import("./synoptic-card.js").then((module) => module.SynopticCard) };
const LIVE_WINDOW = 30; // seconds shown while live data move
const HASH_MS = 300;
const FLOW = 700; // pixels: narrower pages have one column

const STATUS = {
  open: "",
  lost: "Connection lost. Trying again; what is here stays.",
  gone: "The script has ended. What is here stays, but nothing new comes.",
};

export class App {
  state = { charts: [], pages: [], objects: [], bookmarks: [], timeformat: "auto" };
  views = new Views();
  cards = new Map(); // chart id -> card
  shown = []; // cards of the page that is looked at
  focused = null;
  alone = null; // the one card that is shown, if the reader wants so
  following = null; // seconds of live data shown, or null
  latest = -Infinity; // newest time stamp that a push brought
  stamp = 0; // grows with what changes the pictures of all cards
  status = "open";
  receiving = false; // within a batch: what is missing may be on its way
  #cursors = new Map(); // group -> { at, a, b }
  #frame = 0;
  #afterFrame = [];
  #byKey = new Map();
  #types = new Map(); // kind -> card that was fetched
  #known = {}; // of the last state: what the script may change and the reader too
  #fresh = false;
  #timer = 0;
  #hashTimer = 0;

  // openSource(handlers) starts the conversation and returns who holds it.
  constructor(root, openSource) {
    this.speech = new Speech();
    this.views.fromHash(location.hash);
    this.toolbar = new Toolbar(this);
    this.grid = make("main", { class: "grid", id: "charts", "aria-label": "Charts", tabindex: "-1" });
    this.panel = new ValuesPanel(this);
    root.append(this.toolbar.element, make("div", { class: "work" }, this.grid, this.panel.element), this.speech.element);
    this.watch = new IntersectionObserver((entries) => {
      for (const { target, isIntersecting } of entries) {
        const card = this.shown.find((one) => one.element === target);
        card?.setSeen(isIntersecting);
      }
    }, { root: this.grid, rootMargin: "100px" });
    applyTheme(this.views.extra.theme);
    onSystemTheme(() => this.restyle());
    addEventListener("hashchange", () => this.#readHash());
    new ResizeObserver(() => this.#arrange()).observe(this.grid);
    commands.listen(this);
    this.#readCursors();
    this.source = openSource({
      message: (json) => this.#message(json),
      tile: (tile) => {
        this.receiving = true;
        this.#byKey.get(tile.chart)?.take(tile);
      },
      drawn: (callback) => this.drawn(callback),
      status: (status) => this.#setStatus(status),
    });
  }

  // ---- what comes from the server ----

  #message(json) {
    if (json.type === "state") this.#takeState(json);
    else if (json.type === "values" || json.type === "stats") this.#byKey.get(json.chart)?.probes.take(json);
    this.schedule();
  }

  #setStatus(status) {
    if (status === "open" && this.status === "lost") this.#fresh = true;
    this.status = status;
    this.receiving = false;
    this.toolbar.say(STATUS[status], status !== "open");
    if (status === "gone") this.following = null;
    this.schedule();
  }

  #takeState(state) {
    const before = this.#known;
    this.state = state;
    this.#byKey.clear();
    for (const chart of state.charts) {
      const old = this.cards.get(chart.id);
      if (old && old.kind === chart.kind) old.update(chart, this.#fresh);
      else {
        old?.element.remove();
        const type = this.#cardType(chart.kind);
        if (!type) continue; // taken when its module has come
        const card = new type(this, chart);
        this.cards.set(chart.id, card);
        card.update(chart, false);
      }
      const card = this.cards.get(chart.id);
      this.#byKey.set(chart.key, card);
    }
    this.#fresh = false;
    const ids = new Set(state.charts.map((chart) => chart.id));
    for (const [id, card] of this.cards) {
      if (ids.has(id)) continue;
      card.element.remove();
      this.cards.delete(id);
    }
    document.title = state.title ? `${state.title} – kvalo` : "kvalo";
    if (state.live && state.alive && !before.live && !this.views.now.time) this.following = LIVE_WINDOW;
    if (!state.live) this.following = null;
    const first = before.version === undefined;
    const limits = String(state.timelimits ?? "");
    if (limits !== (before.limits ?? "") && state.timelimits && !(first && this.views.now.time)) this.views.setTime(state.timelimits);
    const time = state.globaltime ?? null;
    if (time !== (before.time ?? null) && time !== null && !(first && this.views.extra.at)) this.setCursor("time", time);
    if (state.page !== before.page && !(first && this.views.page)) this.views.page = state.page;
    if (!state.pages.some((page) => page.id === this.views.page)) this.views.page = state.page ?? state.pages[0]?.id ?? null;
    this.#known = { version: state.version, limits, time, page: state.page, live: state.live };
    this.restyle();
    this.#showPage();
    this.toolbar.update();
  }

  #cardType(kind) {
    if (!OTHERS[kind] || this.#types.has(kind)) return this.#types.get(kind) ?? PlotCard;
    OTHERS[kind]().then((type) => {
      this.#types.set(kind, type);
      this.#takeState(this.state);
    });
    return null;
  }

  // ---- pages and layout ----

  setPage(id) {
    this.views.page = id;
    this.alone = null;
    this.#showPage();
    this.toolbar.update();
    this.#writeHash();
  }

  showAlone(card) {
    this.alone = card;
    this.#showPage();
  }

  #showPage() {
    const page = this.state.pages.find((one) => one.id === this.views.page);
    const cards = page ? page.charts.map((key) => this.#byKey.get(key)).filter(Boolean) : [...this.cards.values()];
    const wanted = this.alone && cards.includes(this.alone) ? [this.alone] : cards;
    if (wanted.length !== this.shown.length || wanted.some((card, i) => card !== this.shown[i])) {
      for (const card of this.shown) {
        this.watch.unobserve(card.element);
        if (!wanted.includes(card)) card.setSeen(false);
      }
      this.grid.replaceChildren(...wanted.map((card) => card.element));
      this.shown = wanted;
      for (const card of wanted) {
        card.setSeen(true);
        this.watch.observe(card.element);
      }
    }
    this.cols = page?.cols ?? -1;
    if (!this.shown.length) this.grid.replaceChildren(make("p", { class: "empty" }, this.state.version ? "No charts yet. They appear as soon as the script plots." : "Waiting for the script …"));
    this.#arrange();
    this.stamp++;
    this.schedule();
  }

  #arrange() {
    const count = Math.max(1, this.shown.length);
    const own = count <= 3 ? 1 : count <= 8 ? 2 : 3;
    const columns = this.grid.clientWidth < FLOW ? 1 : Math.min(count, this.cols > 0 ? this.cols : own);
    this.grid.style.setProperty("--columns", columns);
    this.grid.style.setProperty("--rows", Math.ceil(count / columns));
    this.schedule();
  }

  // Every left axis is as wide as the longest name of a state needs, so that plots above each other line up.
  get leftWidth() {
    const names = this.shown.flatMap((card) => card.curves.flatMap((curve) => (curve.states ?? []).map(([, name]) => String(name).length)));
    return Math.max(58, Math.min(130, 16 + 7.5 * Math.max(0, ...names)));
  }

  get rightAxis() {
    return this.shown.some((card) => card.curves.some((curve) => curve.side === "right"));
  }

  restyle() {
    const { theme, theme_live: live, live: moving } = this.state;
    const before = document.documentElement.dataset.theme;
    applyTheme(this.views.extra.theme ?? (moving ? live : theme));
    if (before === document.documentElement.dataset.theme) return;
    for (const card of this.cards.values()) card.recolor();
    this.stamp++;
    this.schedule();
  }

  // ---- time ----

  // All of the time that any chart covers; null without any.
  get timeRange() {
    let low = Infinity;
    let high = this.latest;
    for (const card of this.cards.values()) {
      const range = card.group === "time" && card.ownRange;
      if (!range) continue;
      low = Math.min(low, range[0]);
      high = Math.max(high, range[1]);
    }
    return low < high ? [low, high] : null;
  }

  get shownTime() {
    const all = this.timeRange ?? [0, 1];
    if (this.following) return [Math.max(all[0], all[1] - this.following), Math.max(all[1], all[0] + 1e-6)];
    return this.views.now.time ?? all;
  }

  newest(time) {
    if (time > this.latest) this.latest = time;
    this.schedule();
  }

  stopFollowing() {
    if (!this.following) return;
    this.views.now = { ...this.views.now, time: this.shownTime };
    this.following = null;
    this.toolbar.update();
  }

  toggleFollowing() {
    if (!this.state.live || this.status !== "open") return null;
    if (this.following) this.stopFollowing();
    else {
      const [low, high] = this.shownTime;
      this.following = high - low;
    }
    this.toolbar.update();
    this.schedule();
    return !!this.following;
  }

  // ---- cursors ----

  cursorsOf(group) {
    if (!this.#cursors.has(group)) this.#cursors.set(group, { at: null, a: null, b: null });
    return this.#cursors.get(group);
  }

  setCursor(group, place) {
    const cursors = this.cursorsOf(group);
    if (cursors.at === place) return;
    cursors.at = place;
    for (const card of this.shown) if (card.group === group) card.panes?.forEach((pane) => pane.moveCursor(place));
    this.schedule();
  }

  // Sets or clears A or B.
  setMark(group, name, place) {
    this.cursorsOf(group)[name] = place;
    if (place !== null) this.panel.open(true);
    this.stamp++;
    this.viewChanged();
  }

  // ---- what the reader does ----

  focus(card) {
    if (card === this.focused) return;
    this.focused = card;
    this.panel.update();
  }

  // The card that keys act on.
  get current() {
    return this.shown.includes(this.focused) ? this.focused : this.shown[0] ?? null;
  }

  run(name) {
    commands.run(this, name);
  }

  export(card, format) {
    import("./export.js").then((module) => module.exportCard(this, card, format));
  }

  valuesChanged(card) {
    if (this.shown.includes(card)) this.panel.update();
    if (card.probes.knows(card.cursors.at)) this.speech.answered(card);
    this.schedule();
  }

  viewChanged() {
    this.toolbar.update();
    this.schedule();
    this.#writeHash();
  }

  // ---- the address ----

  #writeHash() {
    clearTimeout(this.#hashTimer);
    this.#hashTimer = setTimeout(() => {
      const { a, b, at } = this.cursorsOf("time");
      Object.assign(this.views.extra, { a: a?.toString(), b: b?.toString() });
      if (at === null) delete this.views.extra.at;
      const hash = this.views.toHash();
      if (hash !== location.hash.slice(1)) history.replaceState(null, "", `#${hash}`);
    }, HASH_MS);
  }

  #readCursors() {
    for (const name of ["a", "b", "at"]) {
      const text = this.views.extra[name];
      const place = Number(text);
      if (text && Number.isFinite(place)) this.cursorsOf("time")[name] = place;
    }
  }

  #readHash() {
    if (location.hash.slice(1) === this.views.toHash()) return;
    this.views.fromHash(location.hash);
    this.following = null;
    this.#readCursors();
    this.restyle();
    this.#showPage();
    this.toolbar.update();
  }

  // ---- frames ----

  schedule() {
    this.#frame ||= requestAnimationFrame(() => this.#draw());
  }

  later(ms) {
    this.#timer ||= setTimeout(() => {
      this.#timer = 0;
      this.schedule();
    }, ms);
  }

  // A batch is here: calls back when the frame with it is drawn; a hidden page draws none.
  drawn(callback) {
    this.receiving = false;
    if (document.hidden) {
      setTimeout(callback);
      return;
    }
    this.#afterFrame.push(callback);
    this.schedule();
  }

  #draw() {
    this.#frame = 0;
    for (const card of this.shown) if (card.seen) card.frame();
    const callbacks = this.#afterFrame;
    this.#afterFrame = [];
    for (const callback of callbacks) callback();
  }
}
