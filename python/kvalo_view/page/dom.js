// Makes elements. Texts are only ever set as text, never as markup, whatever a name holds.

// make("button", { class: "x", onclick }, "text", child …): `on…` are listeners, the rest attributes.
export function make(name, attributes = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key.startsWith("on")) element.addEventListener(key.slice(2), value);
    else if (value === true) element.setAttribute(key, "");
    else if (value !== false && value !== null && value !== undefined) element.setAttribute(key, value);
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

// A short line in a curve's colour and dash pattern.
export function swatch({ color, dash }) {
  const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
  for (const [key, value] of Object.entries({ width: 22, height: 10, "aria-hidden": "true", class: "swatch" })) svg.setAttribute(key, value);
  const line = document.createElementNS(svg.namespaceURI, "line");
  const place = { x1: 0, x2: 22, y1: 5, y2: 5, stroke: color, "stroke-width": 3, "stroke-dasharray": dash.join(" ") };
  for (const [key, value] of Object.entries(place)) line.setAttribute(key, value);
  svg.append(line);
  return svg;
}

let menus = 0;

// A button that opens a list of actions: items are [text, action, key].
export function menu(text, label, items) {
  const list = make("div", { popover: "auto", class: "menu", role: "menu", id: `menu${++menus}` });
  const button = make("button", { type: "button", "aria-label": label, title: label, "aria-haspopup": "menu", popovertarget: list.id }, text);
  const step = (event) => {
    const places = [...list.children];
    const move = { ArrowDown: 1, ArrowUp: -1 }[event.key];
    if (!move) return;
    event.preventDefault();
    event.stopPropagation();
    places[(places.indexOf(document.activeElement) + move + places.length) % places.length].focus();
  };
  list.addEventListener("keydown", step);
  list.addEventListener("toggle", ({ newState }) => {
    if (newState !== "open") return;
    const rows = typeof items === "function" ? items() : items;
    list.replaceChildren(...rows.map(([name, action, key]) =>
      make("button", { type: "button", role: "menuitem", onclick: () => { list.hidePopover(); action(); } },
        make("span", {}, name), key ? make("kbd", {}, key) : null)));
    const place = button.getBoundingClientRect();
    list.style.left = `${Math.max(4, Math.min(place.left, innerWidth - list.offsetWidth - 4))}px`;
    list.style.top = `${Math.max(4, Math.min(place.bottom + 2, innerHeight - list.offsetHeight - 4))}px`;
    list.firstChild?.focus();
  });
  return [button, list];
}

// Hands a file to the reader.
export function download(name, content, type) {
  const link = make("a", { download: name, href: URL.createObjectURL(new Blob([content], { type })) });
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 1000);
}

// A dialog that closes with Escape or its button, and is gone then.
export function openDialog(title, ...content) {
  const close = make("button", { type: "button", class: "close", "aria-label": "Close", onclick: () => dialog.close() }, "✕");
  const dialog = make("dialog", { "aria-label": title }, make("header", {}, make("h2", {}, title), close), ...content);
  dialog.addEventListener("close", () => dialog.remove());
  dialog.addEventListener("click", (event) => event.target === dialog && dialog.close());
  document.body.append(dialog);
  dialog.showModal();
  return dialog;
}
