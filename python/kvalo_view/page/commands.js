// Every key and what it does: the table that the keyboard, the menus and the help share.

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
    app.speech.say(`View ${step === "undo" ? "before" : "after"}`);
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

// [keys, name, action]; help.js says what each name means.
const TABLE = [
  [["ArrowLeft"], "left", turnOr("ArrowLeft", cursorBy((card) => -card.columnStep))],
  [["ArrowRight"], "right", turnOr("ArrowRight", cursorBy((card) => card.columnStep))],
  [["Shift+ArrowLeft"], "left10", cursorBy((card, span) => -span / 10)],
  [["Shift+ArrowRight"], "right10", cursorBy((card, span) => span / 10)],
  [["Home"], "home", cursorTo(0)],
  [["End"], "end", cursorTo(1)],
  [["a"], "a", mark("a")],
  [["b"], "b", mark("b")],
  [["c"], "clear", withPlot((app, card) => {
    app.setMark(card.group, "a", null);
    app.setMark(card.group, "b", null);
  })],
  [["ArrowUp", "+"], "in", turnOr("ArrowUp", zoom(1 / 1.5))],
  [["ArrowDown", "-"], "out", turnOr("ArrowDown", zoom(1.5))],
  [["Ctrl+ArrowLeft", ","], "back", pan(-0.2)],
  [["Ctrl+ArrowRight", "."], "forward", pan(0.2)],
  [["0"], "all", (app) => app.current?.reset()],
  [["y"], "fit", withPlot((app, card) => {
    app.speech.say(card.toggleFit() ? "y fits what is seen" : "y fits all data");
  })],
  [["x"], "between", withPlot((app, card) => {
    const { a, b } = card.cursors;
    if (a !== null && b !== null && a !== b) card.select(card.panes[0], { x: [Math.min(a, b), Math.max(a, b)] });
  })],
  [["u", "Ctrl+z"], "undo", history("undo")],
  [["r", "Ctrl+Shift+Z", "Ctrl+y"], "redo", history("redo")],
  [[" "], "follow", (app) => {
    const on = app.toggleFollowing();
    if (on !== null) app.speech.say(on ? "Following live data" : "Holding");
  }],
  [["/"], "find", (app) => import("./finder.js").then((module) => module.openFinder(app))],
  [["v"], "values", (app) => app.panel.open(!app.panel.isOpen)],
  [["s"], "table", (app) => import("./view-table.js").then((module) => module.openTable(app.current))],
  [["o"], "alone", (app) => app.showAlone(app.alone ? null : app.current)],
  [["["], "previous", page(-1)],
  [["]"], "next", page(1)],
  [["t"], "theme", theme],
  [["?"], "help", () => import("./help.js").then((module) => module.openHelp(TABLE, keyText))],
];

const SIGNS = { ArrowLeft: "←", ArrowRight: "→", ArrowUp: "↑", ArrowDown: "↓", " ": "Space" };
const keyText = (key) => key.split("+").map((part) => SIGNS[part] ?? part).join(" ") || "+";

const byName = new Map(TABLE.map((row) => [row[1], row[2]]));
const byKey = new Map(TABLE.flatMap((row) => row[0].map((key) => [key, row[2]])));
const TYPING = "input, textarea, select, [popover], dialog";

export const commands = {
  run(app, name) {
    byName.get(name)?.(app);
    app.schedule();
  },

  keyOf: (name) => keyText(TABLE.find((row) => row[1] === name)[0][0]),

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
