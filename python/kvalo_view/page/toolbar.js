// The line at the top: pages, bookmarks, view history, tools, and what the connection is doing.
import { commands } from "./commands.js";
import { make, menu } from "./dom.js";
import { timeFormat, timeText } from "./ticks.js";

export class Toolbar {
  #pages = "";

  constructor(app) {
    this.app = app;
    const button = (name, sign, label) => {
      const key = commands.keyOf(name);
      return make("button", { type: "button", "aria-label": label, title: `${label} (${key})`, onclick: () => app.run(name) }, sign);
    };
    this.title = make("h1", {});
    this.tabs = make("div", { role: "tablist", class: "tabs", "aria-label": "Pages" });
    this.undo = button("undo", "↶", "View before");
    this.redo = button("redo", "↷", "View after");
    this.follow = button("follow", "Live", "Live: follow new data");
    this.values = button("values", "Values", "Table of values");
    const [marks, list] = menu("Bookmarks", "Bookmarks", () => this.#bookmarks());
    this.bookmarks = marks;
    this.status = make("p", { class: "status", role: "status", hidden: true });
    this.notices = make("div", { class: "notices" });
    this.element = make("header", { class: "top" },
      make("a", { class: "skip", href: "#charts", onclick: (event) => { event.preventDefault(); app.current?.element.focus(); } }, "To the charts"),
      this.title, this.tabs,
      make("div", { class: "tools", role: "toolbar", "aria-label": "View" },
        this.follow, this.bookmarks, list, this.undo, this.redo, button("all", "All", "All of the range"),
        button("find", "Find", "Find a series"), this.values,
        button("theme", "◐", "Theme"), button("help", "?", "Keys")),
      this.status, this.notices);
  }

  say(text, problem) {
    this.status.hidden = !text;
    this.status.textContent = text;
    this.status.classList.toggle("problem", problem);
  }

  update() {
    const { app } = this;
    const { state, views } = app;
    this.title.textContent = state.title ?? "kvalo";
    const pages = JSON.stringify([state.pages.map((page) => [page.id, page.name]), views.page]);
    if (pages !== this.#pages) {
      this.#pages = pages;
      const within = this.tabs.contains(document.activeElement);
      this.tabs.replaceChildren(...state.pages.map((page) => this.#tab(page, page.id === views.page)));
      if (within) this.tabs.querySelector("[aria-selected=true]")?.focus();
    }
    this.tabs.hidden = state.pages.length < 2;
    this.undo.disabled = !views.canUndo;
    this.redo.disabled = !views.canRedo;
    this.follow.hidden = !state.live;
    this.follow.setAttribute("aria-pressed", String(!!app.following));
    this.values.setAttribute("aria-pressed", String(!!app.panel?.isOpen));
    this.bookmarks.hidden = !state.bookmarks?.length;
    this.notices.replaceChildren(...(state.notices ?? []).map((notice) => make("p", { class: `notice ${notice.level === "warning" ? "warning" : ""}` }, notice.text)));
  }

  #tab(page, selected) {
    return make("button", {
      type: "button", role: "tab", "aria-selected": String(selected), "aria-controls": "charts", tabindex: selected ? "0" : "-1",
      onclick: () => this.app.setPage(page.id),
      onkeydown: (event) => {
        const step = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
        const next = step && this.app.state.pages[this.app.state.pages.indexOf(page) + step];
        if (!next) return;
        event.preventDefault();
        this.app.setPage(next.id);
      },
    }, page.name || "Page");
  }

  #bookmarks() {
    const { app } = this;
    const format = timeFormat(app.state.timeformat, Math.abs(app.timeRange?.[1] ?? 0));
    return app.state.bookmarks.map(([from, to], i) => [`${i + 1}: ${timeText(from, format)} to ${timeText(to, format)}`, () => {
      app.stopFollowing();
      const room = (to - from) * 0.05 || 0.5;
      app.views.setTime([from - room, to + room]);
      app.viewChanged();
    }]);
  }
}
