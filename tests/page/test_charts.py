"""What the page draws: every kind of chart, by recorded canvas calls and probed pixels."""

import numpy as np
import pytest
import samples
from stand_in import NAN, Chart, Curve

BLUE, ORANGE = "#0072b2", "#c84f00"


@pytest.mark.parametrize("kind", samples.EVERY_KIND)
def test_every_kind_appears_with_its_name_and_ink(serve, show, kind):
    chart = samples.EVERY_KIND[kind]()
    page = show(serve([chart]))
    figure = page.page.locator("figure")
    heading = figure.locator(".heading").text_content()
    assert all(c.json["name"] in heading for c in chart.curves)
    assert figure.locator("[role=status]").is_hidden()
    if kind == "synoptic":
        page.settle()
        assert page.page.locator(".object").first.inner_text().split() == ["Battery", "25"]
    elif kind in ("heatmap", "spectro", "line3d", "mesh"):
        page.settle(1000 if kind in ("line3d", "mesh") else 300)
        assert page.calls("drawImage")
        assert len(set(page.page.evaluate(COLORS))) > 20
    else:
        styles = {c[1] for c in page.calls() if c[0] in ("stroke", "fill")}
        wanted = 1 if kind in ("steps", "cross", "fft", "xcorr") else 2
        assert len(styles & {BLUE, ORANGE}) == wanted


# Colours on the first canvas of the page.
COLORS = """() => {
  const canvas = document.querySelector("figure canvas.space") ?? document.querySelector(".uplot canvas");
  const data = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
  return [...new Set(new Uint32Array(data.buffer))];
}"""


def test_a_spike_of_one_sample_has_ink_at_its_place(serve, show):
    t = np.linspace(0, 100, 1_000_000)
    y = np.zeros_like(t)
    y[730_000] = 10
    y[200_000] = -10
    page = show(serve([Chart("line", [Curve("Quiet", t, y)], left={"min": -12, "max": 12, "tick": None})]))
    ink, box = page.ink(BLUE), page.plot()
    for at, value in ((73.0, 10), (20.0, -10)):
        column = at / 100 * box["width"]
        row = (12 - value) / 24 * box["height"]
        reached = [y for x, y in ink if abs(x - column) <= 1.5 and abs(y - row) <= 8]
        assert reached, (at, value)


def test_only_values_that_are_not_finite_break_a_line(serve, show):
    x = np.array([0.0, 1, 2, 3, 90, 91, 92, 93, 100])
    y = np.array([0.0, 1, NAN, 1, 1, np.inf, -np.inf, 0, 0])
    limits = {"min": -1, "max": 2, "tick": None}
    page = show(serve([Chart("line", [Curve("Gaps", x, y)], left=limits)]))
    ink, box = page.ink(BLUE), page.plot()
    row = round(box["height"] / 3)

    def inked(at, between):
        column = at / 100 * box["width"]
        return any(abs(px - column) < 2 and between[0] <= py <= between[1] for px, py in ink)

    assert inked(50, (row - 2, row + 2)), "wide spacing does not break a line"
    assert not inked(2, (0, box["height"])), "NaN does"
    assert inked(91, (0, 8)), "an edge mark at the top"
    assert inked(92, (box["height"] - 8, box["height"])), "and at the bottom"


def test_both_values_of_a_transition_are_drawn_half_toned(serve, show):
    t = np.linspace(0, 1000, 100_000)
    on = np.zeros_like(t)
    on[55_000:55_010] = 1
    page = show(serve([Chart("bool", [Curve("Blink", t, on, hold=True)])]))
    box = page.plot()
    half = page.ink("#80b9d9")  # the first colour half way to white
    assert {x for x, _ in half}
    assert all(abs(x - 0.55 * box["width"]) <= 2 for x, _ in half)


@pytest.mark.parametrize("form", [4, 5])
def test_pixel_tiles_lie_where_their_pixels_are(serve, show, form):
    page = show(serve([samples.mask(form)]))
    ink, box = page.ink(BLUE), page.plot()
    assert ink
    assert all((x < 4 and y > box["height"] - 5) or (x > box["width"] - 5 and y < 4) for x, y in ink)


def test_axes_limits_ticks_titles_and_formats(serve, show):
    t, roll, pitch = samples.flight(2000, 60, 3600.0)
    curves = [Curve("Roll", t, roll), Curve("Pitch", t, pitch, side="right")]
    left, right = {"min": -40, "max": 40, "tick": 20}, {"min": 0, "max": 9, "tick": 3}
    server = serve([Chart("line", curves, left=left, right=right, xlabel="Flight time")], timeformat="hms")
    page = show(server)
    assert {"-40", "-20", "0", "20", "40", "3", "6", "9"} <= page.texts()
    assert "1:00:30" in page.texts()
    assert page.text(".xlabel") == "Flight time"
    page.forget_calls()
    server.send_state(timeformat="datetime")
    page.settle()
    assert "1970-01-01" in page.texts()


def test_fit_shows_what_is_seen_instead_of_all_data(serve, show):
    t = np.linspace(0, 100, 5000)
    y = np.where(t < 50, 0.001 * np.sin(t), 1000)
    page = show(serve([Chart("line", [Curve("Step", t, y)])]))
    assert "1000" in page.texts()
    page.drag((0.1, 0.5), (0.3, 0.5))
    page.settle()
    page.forget_calls()
    page.key("y")
    page.settle()
    assert "1000" not in page.texts()
    assert "0.001" in page.texts() or "0.0010" in page.texts()


def test_annotations_are_drawn(serve, show):
    objects = [
        {"type": "circle", "x": 300, "y": 0, "diameter": 100, "color": [200, 0, 0]},
        {"type": "rectangle", "x": 300, "y": 0, "width": 60, "height": 10, "color": [0, 120, 0]},
        {"type": "text", "x": 100, "y": 5, "text": "here", "color": None},
        {"type": "flag", "x": None, "y": 12, "text": "limit", "color": None},
        {"type": "datatip", "x": 420, "text": "Roll", "series": 0, "y": 8.25, "color": None},
    ]
    marks = [
        {"type": "mark", "x": 200, "width": 40, "text": "climb", "color": None},
        {"type": "flag", "x": 500, "y": None, "text": "touchdown", "color": None},
    ]
    page = show(serve([samples.line(objects=objects), samples.line(), samples.spectrum()], objects=marks))
    assert {"here", "limit", "Roll 8.25", "climb", "touchdown"} <= page.texts()
    texts = [c[2] for c in page.calls("fillText")]
    assert texts.count("touchdown") >= 2, "objects of the top level are on all charts"
    radius = next(c[4] for c in page.calls("arc"))
    assert radius == pytest.approx(50 / 600 * page.plot()["width"], rel=0.01)


def test_more_than_eight_curves_differ_in_dashes(serve, show):
    curves = [Curve(f"Motor {i}", [0, 1], [i, i]) for i in range(17)]
    page = show(serve([Chart("line", curves)]))
    looks = page.page.locator(".legend line").evaluate_all(
        "lines => lines.map(l => l.getAttribute('stroke') + l.getAttribute('stroke-dasharray'))"
    )
    assert len(set(looks)) == 17


@pytest.mark.parametrize("theme", ["light", "dark"])
def test_curves_and_texts_have_contrast(serve, show, theme):
    page = show(serve([Chart("line", [Curve(str(i), [0, 1], [i, i]) for i in range(8)])], theme=theme))
    back, *colors = page.page.evaluate(
        "[getComputedStyle(document.querySelector('figure')).backgroundColor.match(/\\d+/g).map(Number),"
        " ...[...document.querySelectorAll('.legend line')].map(l => l.getAttribute('stroke')"
        ".match(/\\w\\w/g).map(h => parseInt(h, 16)))]"
    )

    def luminance(rgb):
        parts = [c / 255 / 12.92 if c <= 10 else ((c / 255 + 0.055) / 1.055) ** 2.4 for c in rgb]
        return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2]

    for color in colors:
        low, high = sorted((luminance(color), luminance(back)))
        assert (high + 0.05) / (low + 0.05) >= 3, color
    assert len(colors) == 8


@pytest.mark.parametrize(
    ("name", "x", "y"),
    [("one sample", [5.0], [1.0]), ("equal values", [0, 1, 2], [7, 7, 7]), ("nothing", [], []),
     ("all NaN", [0, 1], [NAN, NAN]), ("all infinite", [0, 1], [np.inf, -np.inf]), ("two stamps alike", [1, 1], [0, 5])],
)  # fmt: skip
def test_odd_data_draws_axes_and_no_error(serve, show, name, x, y):
    page = show(serve([Chart("line", [Curve(name, x, y)])]))
    assert page.calls("fillText")
    finite = any(np.isfinite(v) for v in y)
    assert bool(page.ink(BLUE)) == (finite or "infinite" in name)
