// The dialog that shows every key.
import { make, openDialog } from "./dom.js";

// What each command does, by the name it has in commands.js.
const TEXTS = {
  Cursor: {
    left: "one column back",
    right: "one column forward",
    left10: "a tenth of the view back",
    right10: "a tenth of the view forward",
    home: "to the start of the view",
    end: "to the end of the view",
    a: "set or clear A at the cursor",
    b: "set or clear B at the cursor",
    clear: "clear A and B",
  },
  View: {
    in: "zoom in",
    out: "zoom out",
    back: "pan back",
    forward: "pan forward",
    all: "whole range",
    fit: "fit y to what is seen, or to all data",
    between: "zoom to the span from A to B",
    undo: "view before",
    redo: "view after",
    follow: "follow live data, or hold",
  },
  Page: {
    find: "find a series",
    values: "table of values",
    table: "table of this chart's view",
    alone: "this chart alone, or all",
    previous: "previous page",
    next: "next page",
    theme: "theme: light, dark, the system's",
    help: "these keys",
  },
};

const POINTER = [
  ["Drag", "zoom to the selection"],
  ["Shift+Drag", "pan"],
  ["Wheel", "zoom x; over an axis or with Alt: zoom y; with Shift: pan"],
  ["Double click", "whole range"],
  ["Ctrl+Click on a name", "this curve alone (or i)"],
];

export function openHelp(table, keyText) {
  const rows = (list) => make("dl", {}, ...list.flatMap(([keys, text]) => [
    make("dt", {}, ...keys.flatMap((key, i) => [i ? " or " : "", make("kbd", {}, key)])), make("dd", {}, text)]));
  const keysOf = (name) => table.find((row) => row[1] === name)[0].map((key) => (key === "+" ? key : keyText(key)));
  const parts = Object.entries(TEXTS).map(([group, texts]) => make("section", {}, make("h3", {}, group),
    rows(Object.entries(texts).map(([name, text]) => [keysOf(name), text]))));
  openDialog("Keys", make("div", { class: "keys" }, ...parts,
    make("section", {}, make("h3", {}, "Pointer"), rows(POINTER.map(([key, text]) => [[key], text])))));
}
