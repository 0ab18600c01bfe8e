"""What a reader does with the page: move, zoom, read values, find, export; by pointer, keyboard and ear."""

import json
import re
from pathlib import Path

import numpy as np
import pytest
import samples
from conftest import PACKAGES
from stand_in import PROBE, STATS, VIEW, Chart, Curve

BLUE = "#0072b2"


def is_view(a, b, share=0.02):
    near = share * (b - a)
    return lambda r: r["kind"] == VIEW and abs(r["a"] - a) < near and abs(r["b"] - b) < near


def ramp(**more):
    t = np.linspace(0, 600, 300_000)
    return Chart("line", [Curve("Ramp", t, t)], **more)


# ---- moving ----


def test_a_selection_asks_for_its_range_and_draws_the_answer(serve, show):
    server = serve([ramp()])
    page = show(server)
    page.drag((0.25, 0.5), (0.5, 0.5))
    view = server.wait_for(is_view(150, 300))
    assert view["width"] == pytest.approx(page.plot()["width"], abs=2)
    server.wait_for(is_view(0, 450))
    page.settle()
    assert {"200", "250"} <= page.texts()


def test_zooming_linked_charts_history_and_address(serve, show):
    server = serve([ramp(), ramp()])
    page = show(server)
    page.drag((0.25, 0.5), (0.5, 0.5))
    page.settle()
    views = [r for r in server.requests if is_view(150, 300)(r)]
    assert {r["chart"] for r in views} == {1, 2}, "time axes are linked"
    assert "t=15" in page.page.url or "t=14" in page.page.url
    address = page.page.url
    page.key("u")
    page.settle()
    assert "t=" not in page.page.url
    page.key("r")
    page.settle()
    assert page.page.url == address
    page.page.goto("about:blank")
    server.requests.clear()
    page.page.goto(address)
    page.settle()
    assert next(r for r in server.requests if r["kind"] == VIEW)["a"] == pytest.approx(150, abs=4)


def test_shift_and_drag_pans_within_the_overscan_without_asking(serve, show):
    server = serve([ramp()])
    page = show(server)
    page.drag((0.4, 0.5), (0.6, 0.5))
    server.wait_for(is_view(120, 480))
    page.settle()
    before = len([r for r in server.requests if r["kind"] == VIEW])
    page.drag((0.5, 0.5), (0.45, 0.5), shift=True)
    page.settle()
    assert len([r for r in server.requests if r["kind"] == VIEW]) == before
    page.settle(500)
    assert "t=24" in page.page.url


def test_the_wheel_and_keys_zoom(serve, show):
    server = serve([ramp()])
    page = show(server)
    box = page.plot()
    page.page.mouse.move(box["x"] + box["width"] / 2, box["y"] + 50)
    page.page.mouse.wheel(0, -300)
    server.wait_for(lambda r: r["kind"] == VIEW and 50 < r["a"] < 250 and 350 < r["b"] < 550)
    page.key("0")
    page.settle()
    page.forget_calls()
    page.key("ArrowUp")
    server.wait_for(lambda r: r["kind"] == VIEW and r["b"] - r["a"] == pytest.approx(400, abs=5))


# ---- reading values ----


def test_keyboard_walk_reads_held_values_aloud(serve, show):
    t = np.arange(0.0, 601)
    server = serve([Chart("line", [Curve("Ramp", t, 2 * t)]), Chart("line", [Curve("Other", t, -t)])])
    page = show(server)
    page.page.keyboard.press("Tab")
    page.focus()
    page.key("Home", "Shift+ArrowRight")
    page.settle()
    assert page.page.locator("[aria-live=polite]").text_content() == "60.000 s; Ramp 120"
    page.key("ArrowRight")
    page.settle()
    step = 600 / page.plot()["width"]
    assert server.wait_for(lambda r: r["kind"] == PROBE and r["chart"] == 2)["a"] == pytest.approx(60 + step)
    assert page.page.locator("figure").nth(1).locator(".value").text_content() == "-60", (
        "the cursor is shared"
    )
    page.key("End")
    page.settle()
    assert "Ramp 1200" in page.page.locator("[aria-live=polite]").text_content()


def test_a_and_b_show_differences_and_statistics(serve, show):
    server = serve([ramp()])
    page = show(server)
    page.focus()
    page.key("Home", "Shift+ArrowRight", "a", "Shift+ArrowRight", "b")
    page.settle()
    stats = server.wait_for(lambda r: r["kind"] == STATS)
    assert (stats["a"], stats["b"]) == pytest.approx((60, 120))
    text = page.text(".values")
    assert "B − A" in text
    assert "From A to B" in text
    assert re.search(r"mean\t(89.9|90.0)", text)
    assert "a=60" in page.page.url
    page.key("c")
    page.settle()
    assert "From A to B" not in page.text(".values")


def test_the_table_of_the_view_has_at_most_a_hundred_rows(serve, show):
    page = show(serve([ramp()]))
    page.focus()
    page.key("s")
    rows = page.page.locator("dialog tbody tr")
    assert rows.count() == 100
    assert rows.nth(50).inner_text().startswith("300.000 s\t")
    page.key("Escape")
    assert page.page.locator("dialog").count() == 0


# ---- legend, finder, pages, theme ----


def test_the_legend_hides_and_isolates(serve, show):
    page = show(serve([samples.line()]))
    roll = page.page.get_by_role("button", name="Roll")
    assert page.ink(BLUE)
    roll.click()
    page.settle()
    assert not page.ink(BLUE)
    assert roll.get_attribute("aria-pressed") == "false"
    roll.click(modifiers=["Control"])
    page.settle()
    assert page.ink(BLUE)
    assert not page.ink("#c84f00")


def test_legend_follows_the_script(serve, show):
    chart = samples.line(legend={"visible": True, "full": True, "x": 0.5, "y": 0.1})
    server = serve([chart])
    page = show(server)
    legend = page.page.locator(".legend")
    assert "ATT.Roll" in legend.inner_text()
    assert legend.bounding_box()["y"] > page.plot()["y"]
    chart.more["legend"] = {"visible": False, "full": False, "x": 0, "y": 0}
    server.send_state()
    page.settle()
    assert legend.is_hidden()


def test_finding_a_series_opens_its_page_and_chart(serve, show):
    pages = [
        {"id": "11", "name": "One", "cols": 1, "charts": []},
        {"id": "12", "name": "Two", "cols": 2, "charts": []},
    ]
    server = serve([ramp(), Chart("line", [Curve("Needle", [0, 1], [0, 1])], page="12")], pages=pages)
    page = show(server)
    assert page.page.get_by_role("tab").all_inner_texts() == ["One", "Two"]
    page.key("/")
    page.page.keyboard.type("need")
    page.key("Enter")
    page.settle()
    assert page.page.get_by_role("tab", selected=True).inner_text() == "Two"
    assert page.page.locator("figure:focus .legend").inner_text().strip() == "Needle"
    page.key("[")
    assert page.page.get_by_role("tab", selected=True).inner_text() == "One"


def test_bookmarks_time_limits_and_the_cursor_of_the_script(serve, show):
    server = serve([ramp()], bookmarks=[[100, 200]])
    page = show(server)
    page.page.get_by_role("button", name="Bookmarks").click()
    page.page.get_by_role("menuitem").click()
    server.wait_for(is_view(95, 205))
    server.send_state(timelimits=[10, 20], globaltime=15.0)
    server.wait_for(is_view(10, 20))
    server.wait_for(lambda r: r["kind"] == PROBE and r["a"] == 15)


def test_help_lists_the_keys_and_the_theme_can_be_chosen(serve, show):
    page = show(serve([ramp()], theme="light"))
    page.key("?")
    assert page.page.locator("dialog dt").count() == 27 + 5, "every command and every use of the pointer"
    page.key("Escape")
    page.page.locator("dialog").wait_for(state="detached")
    page.key("t", "t")
    page.settle(500)
    assert page.page.evaluate("document.documentElement.dataset.theme") == "dark"
    assert "theme=dark" in page.page.url


@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_the_theme_follows_the_reader(serve, show, scheme):
    page = show(serve([ramp()]), color_scheme=scheme)
    assert page.page.evaluate("document.documentElement.dataset.theme") == scheme


# ---- export ----


def test_export_of_what_is_seen(serve, show):
    page = show(
        serve([samples.line(objects=[{"type": "text", "x": 9, "y": 0, "text": "<b>&", "color": None}])])
    )

    def save(name):
        page.page.get_by_label("Actions of this chart").click()
        with page.page.expect_download() as started:
            page.page.get_by_role("menuitem", name=name).click()
        return Path(started.value.path()).read_bytes(), started.value

    png, file = save("PNG")
    assert png.startswith(b"\x89PNG")
    assert len(png) > 5000
    assert file.suggested_filename == "Time-series-Roll-Pitch.png"
    svg = save("SVG")[0].decode()
    assert svg.count("<path") >= 4
    assert "&lt;b&gt;&amp;" in svg
    csv, file = save("CSV")
    assert csv.startswith(b"time")
    assert "?t0=0" in file.url
    assert "&t1=" in file.url


# ---- strangers and readers of the screen ----


@pytest.mark.parametrize(
    "name", ["<img src=x onerror=alert(1)>", "</script><b>x", "\u202egnp.exe", "a" * 600, "NaN"]
)
def test_hostile_names_are_text(serve, show, name):
    objects = [{"type": "text", "x": 300, "y": 0, "text": name, "color": None}]
    chart = samples.line(objects=objects, xlabel=name, error=name)
    chart.curves[0].json.update(name=name, full_name=name)
    pages = [
        {"id": "11", "name": name, "cols": 1, "charts": []},
        {"id": "12", "name": "b", "cols": 1, "charts": []},
    ]
    page = show(serve([chart], title=name, pages=pages, notices=[{"level": "warning", "text": name}]))
    for key in ("s", "Escape", "/", "Escape"):
        page.key(key)
    assert page.page.locator("img, script:not([src]), b").count() == 0
    assert page.page.locator(".legend .name").first.text_content() == name
    assert page.page.locator("h1").text_content() == name
    width = page.page.evaluate("document.documentElement.scrollWidth - innerWidth")
    assert width <= 0, "a long name does not push the page apart"


@pytest.mark.parametrize(
    "options",
    [{}, {"color_scheme": "dark"}, {"viewport": {"width": 380, "height": 700}}, {"forced_colors": "active"},
     {"viewport": {"width": 640, "height": 400}, "device_scale_factor": 2}],
)  # fmt: skip
def test_axe_finds_nothing(serve, show, options):
    pages = [
        {"id": "11", "name": "One", "cols": 2, "charts": []},
        {"id": "12", "name": "Two", "cols": 1, "charts": []},
    ]
    charts = [make() for name, make in samples.EVERY_KIND.items() if name not in ("line3d", "mesh")]
    page = show(
        serve(charts, pages=pages, bookmarks=[[0, 9]], notices=[{"level": "warning", "text": "much memory"}]),
        **options,
    )
    page.focus()
    page.key("Home", "Shift+ArrowRight", "a", "Shift+ArrowRight", "b")
    page.settle()
    axe = (PACKAGES / "node_modules/axe-core/axe.min.js").read_text()
    for opened in (None, "?", "/", "s"):
        if opened:
            page.key(opened)
            page.settle()
        # Through the protocol of the browser, not as an element: the page allows no inline script.
        page.page.evaluate(axe)
        found = page.page.evaluate(
            "axe.run().then(r => r.violations.map(v => [v.id, v.nodes.map(n => n.html + n.failureSummary)]))"
        )
        assert not found, json.dumps(found, indent=1)
        if opened:
            page.key("Escape")
    assert page.hosts <= {"127.0.0.1"}
    figure = page.page.locator("figure").first
    assert "samples" in figure.locator(".unseen").first.text_content()
