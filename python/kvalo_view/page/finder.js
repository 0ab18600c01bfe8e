// Finds a series by a part of its name and goes to its chart.
import { make, openDialog } from "./dom.js";

const MOST = 50;

export function openFinder(app) {
  const all = app.state.charts.flatMap((chart) => chart.series.map((series) => ({
    chart, series, text: `${series.name} ${series.full_name ?? ""}`.toLowerCase(),
  })));
  const input = make("input", { type: "search", placeholder: "Name of a series", "aria-label": "Name of a series", "aria-controls": "found", autofocus: true });
  const count = make("p", { role: "status", class: "soft" });
  const list = make("ul", { id: "found", class: "found" });
  const dialog = openDialog("Find a series", input, count, list);
  const go = ({ chart, series }) => {
    dialog.close();
    if (chart.page !== app.views.page && chart.page !== null) app.setPage(chart.page);
    const card = app.cards.get(chart.id);
    if (card.isHidden(series.key)) card.toggle(series.key);
    card.element.scrollIntoView({ block: "nearest" });
    card.element.focus();
  };
  const pageName = (chart) => app.state.pages.find((page) => page.id === chart.page)?.name ?? "";
  const show = () => {
    const words = input.value.toLowerCase().split(/\s+/).filter(Boolean);
    const found = all.filter(({ text }) => words.every((word) => text.includes(word)));
    count.textContent = `${found.length} of ${all.length} series`;
    list.replaceChildren(...found.slice(0, MOST).map((hit) => make("li", {},
      make("button", { type: "button", onclick: () => go(hit) }, make("span", {}, hit.series.full_name || hit.series.name), make("small", {}, pageName(hit.chart))))));
  };
  input.addEventListener("input", show);
  dialog.addEventListener("keydown", (event) => {
    if (event.key === "Enter" && event.target === input) list.querySelector("button")?.click();
    const step = { ArrowDown: 1, ArrowUp: -1 }[event.key];
    if (!step) return;
    event.preventDefault();
    const places = [input, ...list.querySelectorAll("button")];
    places[Math.max(0, Math.min(places.length - 1, places.indexOf(document.activeElement) + step))].focus();
  });
  show();
}
