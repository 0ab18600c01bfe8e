// Every key and what it does: the table that the keyboard, the menus and the help share.
import { make, openDialog } from "./dom.js";

const withPlot = (action) => (app, ...rest) => {
  const card = app.current;
  if (card?.panes) action(app, card, ...rest);
};

// Moves the cursor of a plot and has its values spoken.
function moveCursor(app, card, place) {
  const [low, high] = card.xRange;
  const to = Math.max(low, Math.min(high, place));
  app.speech.await(card);
  app.setCursor(card.group, to);
}

const cursorBy = (amount) => withPlot((app, card) => {
  const [low, high] = card.xRange;
  const { at } = card.cursors;
  const from = at === null || at < low || at > high ? (low + high) / 2 : at;
  moveCursor(app, card, from + amount(card, high - low));
});
const cursorTo = (end) => withPlot((app, card) => moveCursor(app, card, card.xRange[end]));
const turnOr = (event, action) => (app) => (app.current?.key ? app.current.key({ key: event }) : action(app));

const mark = (name) => withPlot((app, card) => {
  const { at } = card.cursors;
  if (at === null) return;
  app.setMark(card.group, name, card.cursors[name] === at ? null : at);
  app.speech.say(`${name.toUpperCase()} at ${card.placeText(card.cursors[name])}`);
});

function page(step) {
  return (app) => {
    const { pages } = app.state;
    const next = pages.findIndex((one) => one.id === app.views.page) + step;
    if (pages[next]) app.setPage(pages[next].id);
  };
}

function history(step) {
  return (app) => {
    if (!app.views[step]()) return;
    app.following = null;
    app.viewChanged();
    app.speech.say(step === "undo" ? "View before" : "View after");
  };
}

function theme(app) {
  const next = { light: "dark", dark: "system", system: "light" }[app.views.extra.theme ?? "system"];
  app.views.extra.theme = next;
  app.restyle();
  app.viewChanged();
  app.speech.say(`Theme: ${next}`);
}

const zoom = (factor) => (app) => (app.current?.xRange ? app.current.zoom(factor) : app.current?.zoom?.(factor));
const pan = (share) => withPlot((app, card) => card.pan(share));

// [group, keys, name, text, action]; keys as they are written in the help.
const TABLE = [
  ["Cursor", ["ArrowLeft"], "left", "one column back", turnOr("ArrowLeft", cursorBy((card) => -card.columnStep))],
  ["Cursor", ["ArrowRight"], "right", "one column forward", turnOr("ArrowRight", cursorBy((card) => card.columnStep))],
  ["Cursor", ["Shift+ArrowLeft"], "left10", "a tenth of the view back", cursorBy((card, span) => -span / 10)],
  ["Cursor", ["Shift+ArrowRight"], "right10", "a tenth of the view forward", cursorBy((card, span) => span / 10)],
  ["Cursor", ["Home"], "home", "to the start of the view", cursorTo(0)],
  ["Cursor", ["End"], "end", "to the end of the view", cursorTo(1)],
  ["Cursor", ["a"], "a", "set or clear A at the cursor", mark("a")],
  ["Cursor", ["b"], "b", "set or clear B at the cursor", mark("b")],
  ["Cursor", ["c"], "clear", "clear A and B", withPlot((app, card) => {
    app.setMark(card.group, "a", null);
    app.setMark(card.group, "b", null);
  })],
  ["View", ["ArrowUp", "+"], "in", "zoom in", turnOr("ArrowUp", zoom(1 / 1.5))],
  ["View", ["ArrowDown", "-"], "out", "zoom out", turnOr("ArrowDown", zoom(1.5))],
  ["View", ["Ctrl+ArrowLeft", ","], "back", "pan back", pan(-0.2)],
  ["View", ["Ctrl+ArrowRight", "."], "forward", "pan forward", pan(0.2)],
  ["View", ["0"], "all", "whole range", (app) => app.current?.reset()],
  ["View", ["y"], "fit", "fit y to what is seen, or to all data", withPlot((app, card) => {
    app.speech.say(card.toggleFit() ? "y fits what is seen" : "y fits all data");
  })],
  ["View", ["x"], "between", "zoom to the span from A to B", withPlot((app, card) => {
    const { a, b } = card.cursors;
    if (a !== null && b !== null && a !== b) card.select(card.panes[0], { x: [Math.min(a, b), Math.max(a, b)] });
  })],
  ["View", ["u", "Ctrl+z"], "undo", "view before", history("undo")],
  ["View", ["r", "Ctrl+Shift+Z", "Ctrl+y"], "redo", "view after", history("redo")],
  ["View", [" "], "follow", "follow live data, or hold", (app) => {
    const on = app.toggleFollowing();
    if (on !== null) app.speech.say(on ? "Following live data" : "Holding");
  }],
  ["Page", ["/"], "find", "find a series", (app) => import("./finder.js").then((module) => module.openFinder(app))],
  ["Page", ["v"], "values", "table of values", (app) => app.panel.open(!app.panel.isOpen)],
  ["Page", ["s"], "table", "table of this chart's view", (app) => import("./view-table.js").then((module) => module.openTable(app.current))],
  ["Page", ["o"], "alone", "this chart alone, or all", (app) => app.showAlone(app.alone ? null : app.current)],
  ["Page", ["["], "previous", "previous page", page(-1)],
  ["Page", ["]"], "next", "next page", page(1)],
  ["Page", ["t"], "theme", "theme: light, dark, the system's", theme],
  ["Page", ["?"], "help", "these keys", openHelp],
];

const POINTER = [
  ["Drag", "zoom to the selection"],
  ["Shift+Drag", "pan"],
  ["Wheel", "zoom x; over an axis or with Alt: zoom y; with Shift: pan"],
  ["Double click", "whole range"],
  ["Ctrl+Click on a name", "this curve alone (or i)"],
];

const SIGNS = { ArrowLeft: "←", ArrowRight: "→", ArrowUp: "↑", ArrowDown: "↓", " ": "Space" };
const keyText = (key) => key.split("+").map((part) => SIGNS[part] ?? part).join(" ") || "+";

function openHelp() {
  const groups = [...new Set(TABLE.map(([group]) => group))];
  const rows = (list) => make("dl", {}, ...list.flatMap(([keys, text]) => [
    make("dt", {}, ...keys.flatMap((key, i) => [i ? " or " : "", make("kbd", {}, key)])), make("dd", {}, text)]));
  const parts = groups.map((group) => make("section", {}, make("h3", {}, group),
    rows(TABLE.filter((row) => row[0] === group).map((row) => [row[1].map((key) => (key === "+" ? key : keyText(key))), row[3]]))));
  openDialog("Keys", make("div", { class: "keys" }, ...parts,
    make("section", {}, make("h3", {}, "Pointer"), rows(POINTER.map(([key, text]) => [[key], text])))));
}

const byName = new Map(TABLE.map((row) => [row[2], row[4]]));
const byKey = new Map(TABLE.flatMap((row) => row[1].map((key) => [key, row[4]])));
const TYPING = "input, textarea, select, [popover], dialog";

export const commands = {
  run(app, name) {
    byName.get(name)?.(app);
    app.schedule();
  },

  keyOf: (name) => keyText(TABLE.find((row) => row[2] === name)[1][0]),

  listen(app) {
    addEventListener("keydown", (event) => {
      if (event.metaKey || event.defaultPrevented || event.target.closest?.(TYPING)) return;
      // Buttons and tabs keep the keys that work them.
      if (event.target.closest?.("button, a, [role=tab]") && /^(Enter| |Arrow.*|Home|End)$/.test(event.key)) return;
      const letter = event.key.length === 1;
      const shift = event.shiftKey && (!letter || event.ctrlKey) ? "Shift+" : "";
      const action = !event.altKey && byKey.get((event.ctrlKey ? "Ctrl+" : "") + shift + event.key);
      if (!action) return;
      event.preventDefault();
      action(app);
      app.schedule();
    });
  },
};
