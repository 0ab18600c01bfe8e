"""Takes pictures of the page for people to look at: python tests/page/look.py FOLDER [NAME...]"""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import samples
from conftest import ASSETS, BROWSER
from playwright.sync_api import sync_playwright
from stand_in import StandIn


def main(folder: Path, names):
    folder.mkdir(parents=True, exist_ok=True)
    with sync_playwright() as playwright:
        browser = playwright.chromium.launch(**BROWSER)
        for name, (charts, state, options, act) in scenes().items():
            if names and name not in names:
                continue
            server = StandIn(ASSETS, charts, **state)
            page = browser.new_page(**{"viewport": {"width": 1500, "height": 900}, **options})
            page.on("console", lambda m, name=name: print(f"{name}: {m.text}"))
            page.on("pageerror", lambda e, name=name: print(f"{name}: {e}"))
            page.goto(server.url)
            page.wait_for_timeout(1200)
            if act:
                act(page)
                page.wait_for_timeout(500)
            page.screenshot(path=folder / f"{name}.png")
            page.close()
            server.close()
        browser.close()


def annotated():
    objects = [
        {"type": "circle", "x": 100, "y": 5, "diameter": 40, "color": [200, 0, 0]},
        {"type": "rectangle", "x": 300, "y": 0, "width": 60, "height": 20, "color": None},
        {"type": "text", "x": 250, "y": 18, "text": "Turn <b>three</b>", "color": [0, 100, 0]},
        {"type": "flag", "x": None, "y": 12, "text": "limit", "color": [160, 0, 160]},
        {"type": "datatip", "x": 420, "text": "Roll", "series": 0, "y": 8.25, "color": None},
    ]
    chart = samples.line(objects=objects)
    chart.curves[1].json["side"] = "right"
    return chart


def scenes():
    every = [make() for make in samples.EVERY_KIND.values()]
    marks = [{"type": "mark", "x": 200, "width": 40, "text": "climb", "color": None},
             {"type": "flag", "x": 500, "y": None, "text": "touchdown", "color": None}]  # fmt: skip
    unix = samples.flight(start=1.7637e9)

    def cursors(page):
        page.locator("figure").first.focus()
        page.keyboard.press("Home")
        for key in ["Shift+ArrowRight"] * 3 + ["a"] + ["Shift+ArrowRight"] * 2 + ["b"] + ["Shift+ArrowRight"]:
            page.keyboard.press(key)
            page.wait_for_timeout(60)

    def dates():
        return [
            samples.Chart(
                "line", [samples.Curve("Roll", unix[0], unix[1]), samples.Curve("Pitch", unix[0], unix[2])]
            )
        ]

    few = [annotated(), samples.steps(), samples.states()]
    pages = [
        {"id": "11", "name": "Attitude", "cols": -1, "charts": []},
        {"id": "12", "name": "Power", "cols": 1, "charts": []},
    ]
    marked = {"objects": marks, "pages": pages, "bookmarks": [[100, 200]]}
    zoomed = {"viewport": {"width": 750, "height": 450}, "device_scale_factor": 2}
    narrow = {"viewport": {"width": 380, "height": 760}}
    return {
        "every": (every, {}, {}, None),
        "every-dark": ([make() for make in samples.EVERY_KIND.values()], {"theme": "dark"}, {}, None),
        "cursors": (few, marked, {}, cursors),
        "cursors-dark": ([annotated(), samples.steps(), samples.states()], {**marked, "theme": "dark", "pages": [dict(p, charts=[]) for p in pages]}, {}, cursors),
        "dates": (dates(), {}, {}, None),
        "narrow": ([samples.line(), samples.states()], {}, narrow, cursors),
        "zoom200": ([samples.line(), samples.states()], {}, zoomed, None),
        "help": ([samples.line()], {}, {}, lambda page: page.keyboard.press("?")),
        "find": ([samples.line(), samples.states()], {}, {}, lambda page: page.keyboard.press("/")),
        "menu": ([samples.line()], {}, {}, lambda page: page.get_by_label("Actions of this chart").click()),
        "table": ([samples.line()], {}, {}, lambda page: page.keyboard.press("s")),
        "many": ([samples.Chart("line", [samples.Curve(f"Motor {i}", [0, 1, 2, 3], [i, i + 1, i - 1, i + 0.5]) for i in range(20)])], {}, {}, None),
        "forced": ([samples.line(), samples.states()], {}, {"forced_colors": "active"}, None),
        "empty": ([], {}, {}, None),
    }  # fmt: skip


if __name__ == "__main__":
    main(Path(sys.argv[1]), sys.argv[2:])
