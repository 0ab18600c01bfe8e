"""The page and its server over time: live data, a slow page, breaks, the end of the script; and files."""

import json

import numpy as np
import pytest
import samples
from assemble import assemble
from stand_in import ACK, NAN, VIEW, VISIBLE, Chart, Curve

BLUE = "#0072b2"


def growing(seconds):
    t = np.arange(0, seconds, 0.01)
    return Curve("Live", t, np.sin(t))


def test_charts_and_notices_that_come_later_appear(serve, show):
    server = serve([])
    page = show(server)
    assert "No charts yet" in page.text(".empty")
    server.add(samples.line())
    server.send_state(notices=[{"level": "warning", "text": "Charts hold 5.1 GB"}])
    page.settle()
    assert page.ink(BLUE)
    assert page.text(".notice") == "Charts hold 5.1 GB"
    server.charts[0].more["error"] = "The two series have no time in common"
    server.send_state()
    page.settle()
    assert page.text("figure .message") == "The two series have no time in common"


def test_a_live_source_moves_and_can_be_held(serve, show):
    chart = Chart("line", [growing(60)])
    server = serve([chart], live=True)
    page = show(server)
    view = server.wait_for(lambda r: r["kind"] == VIEW)
    assert view["flags"] & 1
    assert view["b"] - view["a"] == 30
    for seconds in (61, 62, 70):
        chart.curves[0] = growing(seconds)
        server.push(chart)
        page.settle()
    page.settle()
    page.forget_calls()
    page.key("v")
    page.settle()
    assert {"45", "65"} <= page.texts()
    assert "35" not in page.texts()
    page.key(" ")
    server.wait_for(lambda r: r["kind"] == VIEW and not r["flags"] & 1)
    assert page.page.get_by_role("button", name="Live:").get_attribute("aria-pressed") == "false"


def test_every_batch_is_acknowledged_and_hidden_tabs_say_so(serve, show):
    server = serve([samples.line()])
    page = show(server)
    batches = [r["seq"] for r in server.requests if r["kind"] == ACK]
    assert batches == list(range(1, len(batches) + 1))
    assert len(batches) >= 2
    page.page.evaluate(
        "Object.defineProperty(document, 'hidden', {value: true, configurable: true});"
        "document.dispatchEvent(new Event('visibilitychange'))"
    )
    assert server.wait_for(lambda r: r["kind"] == VISIBLE)["flags"] == 0


def test_the_page_comes_back_after_a_break_with_other_keys(serve, show):
    server = serve([samples.line()])
    page = show(server)
    server.charts[0].key = 9
    server.state["pages"][0]["charts"] = [9]
    server.drop()
    page.page.locator(".status", has_text="Connection lost").wait_for()
    assert page.ink(BLUE), "what was drawn stays"
    page.page.locator(".status").wait_for(state="hidden")
    server.wait_for(lambda r: r["kind"] == VIEW and r["chart"] == 9)
    page.drag((0.2, 0.5), (0.4, 0.5))
    page.settle()
    assert page.ink(BLUE)


def test_the_end_of_the_script_is_told_and_nothing_is_lost(serve, show):
    server = serve([samples.line()])
    page = show(server)
    server.gone()
    page.page.locator(".status").wait_for()
    assert "script has ended" in page.text(".status")
    page.drag((0.2, 0.5), (0.4, 0.5))
    page.settle()
    assert page.ink(BLUE), "the overview still serves a zoom"
    connections = len([p for p in server.served if p.endswith("/s")])
    page.settle()
    assert len([p for p in server.served if p.endswith("/s")]) == connections


def test_what_the_page_does_not_know_is_ignored(serve, show):
    def make(chart, view):
        good = samples.tile(
            3, [np.array([0.0, 1]), np.array([0.0, 1])], chart=chart.key, seq=view["seq"], n=2
        )
        cut = samples.tile(1, [np.zeros(4, "<f4")], chart=chart.key, seq=view["seq"], n=1000)
        return [samples.tile(99, [], chart=chart.key), cut, b"short", good, samples.tile(3, [], chart=777)]

    server = serve(
        [Chart("line", [Curve("A", [0, 1], [0, 1])], make=make), Chart("later", [])], news={"a": 1}
    )
    page = show(server)
    assert page.page.locator("figure").count() == 2
    assert page.ink(BLUE)


def test_a_page_stays_within_its_budget_of_bytes(serve, show, assets):
    server = serve([samples.line()])
    page = show(server, viewport={"width": 1560, "height": 900})
    loaded = {p.rsplit("/", 1)[1] or "index.html" for p in server.served} - {"s"}
    assert "main.js" in loaded
    assert "space-scene.js" not in loaded
    assert sum((assets / name).stat().st_size for name in loaded) <= 120_000
    server.sent = 0
    page.drag((0.2, 0.5), (0.25, 0.5))
    page.settle()
    assert 0 < server.sent / 2 <= 26_000 * 4, "a view and its overscan of three widths"


def test_without_webgl_the_servers_picture_or_a_sentence_stands_in(serve, show):
    refuse = (
        "const old = HTMLCanvasElement.prototype.getContext;"
        "HTMLCanvasElement.prototype.getContext = function (kind, ...rest) {"
        "return kind.startsWith('webgl') ? null : old.call(this, kind, ...rest); };"
    )
    script = refuse + "OffscreenCanvas.prototype.getContext = () => null;"
    server = serve([samples.surface()])
    page = show(server, script=script)
    page.page.locator("img.space").wait_for()
    page.settle()
    page.problems = [p for p in page.problems if "WebGL" not in p]
    assert any(
        p.startswith(f"/k/{'0123456789abcdef' * 2}/chart/{server.charts[0].id}.png") for p in server.served
    )
    server.send_state(pictures=False)
    other = show(serve([samples.spiral()], pictures=False), script=script)
    other.page.locator("figure .message").wait_for()
    other.problems = [p for p in other.problems if "WebGL" not in p]
    assert "WebGL" in other.text("figure .message")


def test_a_page_in_one_file_zooms_without_a_server(assets, show, tmp_path):
    t = np.linspace(0, 600, 2_000_000)
    y = np.sin(t)
    y[1_234_567] = 40
    chart = Chart("line", [Curve("</script><b>", t, y), Curve("few", [0, 300, 600], [1, NAN, 2])])
    chart.key = 1
    view = {"a": NAN, "b": NAN, "width": 16384, "height": 1, "seq": 1}
    state = {"type": "state", "version": 1, "title": "saved", "timeformat": "auto", "page": "11", "bookmarks": [],
             "pages": [{"id": "11", "name": "p", "cols": 1, "charts": [1]}], "objects": [], "charts": [chart.state()]}  # fmt: skip
    state["charts"][0]["left"] = {"min": -5, "max": 45, "tick": None}
    file = tmp_path / "saved.html"
    file.write_text(assemble(assets, json.dumps(state), chart.tiles(view)), "utf-8")
    assert file.stat().st_size < 340_000
    page = show(file.as_uri())
    box, spike = page.plot(), t[1_234_567] / 600
    row = 5 / 50 * box["height"]
    assert any(abs(px - spike * box["width"]) <= 1.5 and abs(py - row) <= 6 for px, py in page.ink(BLUE))
    page.drag((0.55, 0.5), (0.675, 0.5))
    page.settle()
    seen = (spike - 0.55) / 0.125 * box["width"]
    assert any(abs(px - seen) <= 16 and abs(py - row) <= 6 for px, py in page.ink(BLUE))
    page.focus()
    page.key("Home")
    page.settle()
    start = float(page.page.url.split("t=")[1].split(",")[0])
    assert float(page.page.locator(".value").first.text_content()) == pytest.approx(np.sin(start), abs=0.05)
    assert page.hosts <= {None}
    assert page.page.locator("b").count() == 0


def test_overviews_serve_while_the_answer_is_on_its_way(serve, show):
    chart = samples.line()
    server = serve([chart])
    page = show(server)
    chart.make = lambda c, view: []
    page.drag((0.3, 0.5), (0.4, 0.5))
    page.settle()
    assert page.ink(BLUE)


def test_a_chart_whose_range_nobody_knows_is_asked_for_whole(serve, show):
    chart = samples.line(busy=False)
    known = chart.range
    chart.range = lambda: (None, None)
    server = serve([chart])
    page = show(server)
    view = server.wait_for(lambda r: r["kind"] == VIEW)
    assert np.isnan([view["a"], view["b"]]).all()
    chart.range = known
    server.send_state()
    page.settle()
    assert {"200", "400"} <= page.texts()
    assert page.ink(BLUE)
