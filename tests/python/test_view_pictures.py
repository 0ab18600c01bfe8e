"""kvalo_view's pictures of charts: what is on the figures, where the ink is, and which files come out."""

import io
import json
import math
import os
import runpy
import subprocess
import sys
import types

import kvalo
import kvalo_view
import numpy as np
import pytest
from common import cases, series
from conftest import ROOT, run_script
from kvalo_view import _view, host, pictures, times
from kvalo_view.state import HUGE
from matplotlib.collections import EllipseCollection, PolyCollection
from matplotlib.colors import to_hex
from matplotlib.image import imread
from matplotlib.patches import Rectangle, StepPatch


@pytest.fixture(autouse=True)
def _view_is_the_host(_installed_host):
    """This package's handler instead of the recording host, without charts."""
    _view.clear()
    _view.on_request(host.answer)
    kvalo.callback(_view.handler())
    kvalo.reset()
    yield
    kvalo.reset()
    kvalo.set_config("light", "file", "theme")
    _view.clear()
    _view.on_request(None)
    kvalo.callback(_installed_host.capsule())


def drawn(size=""):
    """The axes of the only chart, after it was drawn once."""
    (figure,) = kvalo_view.figures(size)
    figure.canvas.draw()
    return figure.axes


def pixels(figure):
    figure.canvas.draw()
    return np.asarray(figure.canvas.buffer_rgba())[..., :3].astype(int)


def place(axes, x, y):
    """Column and row of a place in the picture."""
    column, up = axes.transData.transform((x, y))
    return int(column), int(axes.figure.bbox.height - 1 - up)


def texts(figure):
    found = [t.get_text() for axes in figure.axes for t in axes.texts]
    return found + [t.get_text() for t in figure.texts]


def wave(n=2000, rate=100.0, f=3.0):
    t = np.arange(n) / rate
    return series(np.sin(2 * np.pi * f * t), t)


# ---- lines ----


def test_one_spike_in_a_million_samples_has_ink():
    y = np.zeros(1_000_000)
    y[654_321] = 5
    kvalo.plot(obj=series(y))
    (figure,) = kvalo_view.figures("800x400")
    (axes,) = figure.axes
    picture = pixels(figure)
    column, row = place(axes, 654_321, 4.0)
    around = picture[row, column - 2 : column + 3]
    assert around[:, 0].min() < 160, around  # dark against white
    assert picture[row, column + 20 : column + 60].min() > 215  # the same row elsewhere has only grid
    assert len(axes.lines[0].get_xdata()) < 4 * 2 * 800 + 3


def test_extremes_of_every_column_are_on_the_line():
    y = np.random.default_rng(1).standard_normal(100_000)
    kvalo.plot(obj=series(y))
    (axes,) = drawn("400x300")
    line = axes.lines[0]
    x, drawn_y = line.get_xdata(), line.get_ydata()
    columns = np.minimum((np.arange(y.size) * 800) // (y.size - 1), 799)
    for column in (0, 17, 400, 799):
        inside = y[columns == column]
        centre = (column + 0.5) * (y.size - 1) / 800
        found = drawn_y[np.isclose(x, centre)]
        assert [found.min(), found.max()] == pytest.approx([inside.min(), inside.max()], abs=1e-6)


def test_the_largest_pictures_are_drawn(tmp_path):
    chart = kvalo.plot(obj=series(np.random.default_rng(1).standard_normal(100_000)))
    kvalo.save(str(tmp_path / "wide.png"), chart, "16384x2000")
    assert imread(tmp_path / "wide.png").shape[:2] == (2000, 16384)


def test_two_axes_limits_ticks_titles_and_legend():
    chart = kvalo.plot(obj=wave(), name="cost in $ and €")
    kvalo.plot(chart, wave() * 100, "far", side="right")
    kvalo.set_chart(chart, lmin=-2, lmax=3, ltick=0.5, rmax=400, xlabel="$t$ since then")
    left, right = drawn()
    assert left.get_ylim() == (-2, 3)
    assert np.diff(left.get_yticks()) == pytest.approx(0.5)
    assert right.get_ylim()[1] == 400
    assert -110 < right.get_ylim()[0] < -100
    assert left.get_xlabel() == r"\$t\$ since then"
    names = [text.get_text() for text in left.get_legend().get_texts()]
    assert names == [r"cost in \$ and €", "far (right)"]
    assert [to_hex(line.get_color()) for axes in (left, right) for line in axes.lines] == [
        "#0072b2",
        "#c84f00",
    ]
    kvalo.legend(chart, visible=0)
    assert drawn()[0].get_legend() is None


def test_fit_follows_what_is_seen():
    chart = kvalo.plot(obj=series(np.arange(1001.0)))
    kvalo.set("timelimits", 100, 200)
    assert drawn()[0].get_ylim()[1] > 1000
    kvalo.set_chart(chart, fit="both")
    (axes,) = drawn()
    assert axes.get_xlim() == (100, 200)
    assert axes.get_ylim() == pytest.approx((96, 204))


@cases(
    "x, y, segments",
    ([5.0], [3.0], 0),
    ([0, 1, 2], [4.0, 4.0, 4.0], 1),
    ([0, 1, 2], [math.nan] * 3, 0),
    ([0, 1, 2], [math.inf, -math.inf, math.inf], 0),
    ([0, 1, 2, 3, 4], [1, 2, math.nan, 3, math.nan], 1),
    ([1, 1], [2.0, 3.0], 1),
    ([3, 2, 1], [1.0, 2.0, 3.0], 0),
    ([], [], 0),
    ([0, 1, 2], [1.7e308, -1.7e308, 0], 0),
    ([1e300, 1.7e308], [0.0, 1.0], 0),
)
def test_odd_series_are_drawn(x, y, segments):
    kvalo.plot(obj=series(y, x))
    (figure,) = kvalo_view.figures("320x200")
    picture = pixels(figure)
    finite = abs(np.array(y)) < HUGE
    if not figure.axes:
        assert "too large" in texts(figure)[0]
        return
    top = int(figure.bbox.height - figure.axes[0].bbox.y1)
    ink = (picture[top:, :, 2] - picture[top:, :, 0] > 60).sum()  # without the legend
    assert (ink > 0) == (len(y) > 0 and not np.isnan(y).all()), "values have ink, infinite ones at the edge"
    (axes,) = figure.axes
    assert all(map(math.isfinite, (*axes.get_xlim(), *axes.get_ylim())))
    solid = [line for line in axes.lines if line.get_linestyle() == "-"]
    lengths = [np.isfinite(line.get_ydata()).sum() for line in solid]
    assert (max(lengths, default=0) >= 2) == bool(segments)
    if finite.any():
        low, high = axes.get_ylim()
        assert low <= np.asarray(y)[finite].min() <= np.asarray(y)[finite].max() <= high


def test_states_as_a_style_hold_their_value():
    kvalo.plot(obj=series([0, 1, 0], [0, 1, 3]), style="bool")
    (axes,) = drawn()
    assert axes.lines[0].get_ydata().tolist() == [0, 0, 1, 1, 0]
    assert axes.lines[0].get_xdata().tolist() == [0, 1, 1, 3, 3]
    assert [type(c) for c in axes.collections][-1].__mro__[1] is PolyCollection  # filled to zero


def test_descending_time_and_many_dots():
    n = 50_000
    kvalo.plot(obj=series(np.sin(np.arange(n) / 500), np.arange(n)[::-1]), name="back")
    (figure,) = kvalo_view.figures("400x300")
    (axes,) = figure.axes
    picture = pixels(figure)
    assert len(axes.images) == 1
    for k in (700, 20_000, 49_000):
        column, row = place(axes, n - 1 - k, math.sin(k / 500))
        part = picture[row - 2 : row + 3, column - 2 : column + 3]
        assert part[..., 0].min() < 80


# ---- the other kinds ----


def test_lanes_of_states():
    chart = kvalo.boolplot(obj=series([0, 1, 0, 2, 0], [0, 1, 2, 3, 4]), name="gear")
    kvalo.boolplot(chart, series(np.arange(100_000) % 2), "fast")
    (axes,) = drawn("400x300")
    assert [t.get_text() for t in axes.get_yticklabels()] == ["gear", "fast"]
    bands = [[p.get_extents() for p in c.get_paths()] for c in axes.collections]
    assert [(b.x0, b.x1) for b in bands[0]] == [(1, 2), (3, 4)]
    assert axes.collections[1].get_alpha() == 0.5  # changes that are too many to tell


def test_spectrum_has_its_peak():
    kvalo.fft(obj=wave(f=3), name="w")
    (axes,) = drawn()
    line = axes.lines[0]
    peak = np.argmax(line.get_ydata())
    assert (line.get_xdata()[peak], line.get_ydata()[peak]) == pytest.approx((3, 1), abs=0.06)
    assert (axes.get_xlabel(), axes.get_ylim()[0]) == ("Hz", 0)


def test_bode_has_gain_phase_and_coherence():
    noise = series(np.random.default_rng(1).standard_normal(20_000), np.arange(20_000) / 100)
    chart = kvalo.bode(obj=noise, name="in")
    assert "two series" in texts(kvalo_view.figures()[0])[0]
    kvalo.bode(chart, noise * 10, "out")
    gain, share, phase = sorted(drawn(), key=lambda axes: axes.get_ylabel() != "Gain, dB")
    assert np.nanmedian(gain.lines[0].get_ydata()) == pytest.approx(20, abs=0.01)
    by_title = {axes.get_ylabel(): axes for axes in (share, phase)}
    assert abs(by_title["Phase, °"].lines[0].get_ydata()).max() < 1
    assert np.nanmin(by_title["Coherence"].lines[0].get_ydata()) > 0.99
    assert gain.get_xscale() == "log"


def test_cross_plot():
    t = np.linspace(0, 2 * np.pi, 500)
    chart = kvalo.crossplot(obj=series(np.cos(t), t), name="x")
    kvalo.crossplot(chart, series(np.sin(t), t), "y")
    (axes,) = drawn()
    dots = axes.lines[0]
    assert np.hypot(dots.get_xdata(), dots.get_ydata()) == pytest.approx(1)
    assert (axes.get_xlabel(), axes.get_ylabel()) == ("x", "y")


def test_histogram_bars_and_outline():
    chart = kvalo.hist(obj=series([0, 0, 1, 2, 2, 2]), name="a", nbins=3)
    kvalo.hist(chart, series([0, 1, 1]), "b", type="outline", nbins=3)
    (axes,) = drawn()
    bars, outline = (patch for patch in axes.patches if isinstance(patch, StepPatch))
    assert bars.get_data().values.tolist() == [2, 1, 3]
    assert (bars.get_fill(), outline.get_fill()) == (True, False)


def test_heat_map_and_spectrogram():
    rng = np.random.default_rng(1)
    chart = kvalo.heatmap(obj=series(rng.uniform(size=5000)), name="x")
    kvalo.heatmap(chart, series(rng.uniform(5, 6, size=5000)), "y")
    axes, bar = drawn()
    assert axes.images[0].get_array().sum() == 5000
    assert (axes.get_xlabel(), axes.get_ylabel(), bar.get_ylabel()) == ("x", "y", "samples")
    _view.clear()
    kvalo.spectrogram(obj=wave(20_000, 1000, 125), name="tone", nfft=256)
    axes, bar = drawn()
    levels, (_, _, low, high) = axes.images[0].get_array(), axes.images[0].get_extent()
    row = levels[:, levels.shape[1] // 2].argmax()
    assert low + (row + 0.5) / levels.shape[0] * (high - low) == pytest.approx(125, abs=4)
    assert levels.max() == pytest.approx(0, abs=0.5)


def test_correlation_finds_the_delay():
    noise = np.random.default_rng(1).standard_normal(1000)
    chart = kvalo.xcorrplot(obj=series(noise), name="a")
    kvalo.xcorrplot(chart, series(np.roll(noise, 50)), "b")
    (axes,) = drawn()
    line = axes.lines[0]
    assert line.get_xdata()[np.argmax(line.get_ydata())] == pytest.approx(50, abs=1)


def test_in_space():
    t = np.linspace(0, 10, 100)
    line = kvalo.plot3d(obj=series(np.cos(t), t), name="x")
    kvalo.plot3d(line, series(np.sin(t), t), "y")
    kvalo.plot3d(line, series(t, t), "z")
    (axes,) = drawn()
    x, y, z = axes.lines[0].get_data_3d()
    assert np.allclose([x, y, z], [np.cos(t), np.sin(t), t], atol=1e-5)
    assert (axes.get_xlabel(), axes.get_ylabel(), axes.get_zlabel()) == ("x", "y", "z")
    _view.clear()
    kvalo.mesh(kvalo.create_mesh_sinc())
    (axes,) = drawn()
    assert axes.get_zlim()[1] > 0.9
    assert len(axes.collections) == 1


def test_synoptic_shows_values_at_the_cursor():
    chart = kvalo.synoptic(
        obj=series([10, 20, 30]), name="level", x=50, y=40, width=100, min=0, max=40, red=255, green=0, blue=0
    )
    kvalo.synoptic(chart, series([math.nan]), "dead")
    (figure,) = kvalo_view.figures()
    assert texts(figure) == ["level", "30", "dead", "no value"]
    bar = [p for p in figure.axes[0].patches if isinstance(p, Rectangle)][-1]
    assert (bar.get_x(), bar.get_width(), to_hex(bar.get_facecolor())) == (50, 75, "#ff0000")
    kvalo.set("globaltime", 1.5)
    assert texts(kvalo_view.figures()[0])[1] == "20"


def test_every_kind_says_what_it_lacks():
    for command in (
        "plot",
        "boolplot",
        "crossplot",
        "fft",
        "spectrogram",
        "bode",
        "xcorrplot",
        "hist",
        "heatmap",
    ):
        getattr(kvalo, command)()
    kvalo.plot3d(), kvalo.synoptic()
    for command in ("crossplot", "fft", "spectrogram", "bode", "xcorrplot", "hist", "heatmap", "plot3d"):
        getattr(kvalo, command)(obj=series([math.nan]))
    figures = kvalo_view.figures("200x120")
    ids = [int(chart["id"]) for chart in json.loads(_view.state())["charts"]]
    assert len(figures) == len(ids) == 19
    for figure in figures:
        figure.canvas.draw()
        assert figure.axes or len(texts(figure)[0]) > 5


# ---- annotations, times, themes ----


def test_annotations():
    chart = kvalo.plot(obj=series([0, 10, 20]), name="ramp")
    kvalo.plot(chart, series([5, 5, 5]) * 1000, "far", side="right")
    before = drawn()[0].axis()
    kvalo.circle(chart, 1, 10, 0.5, 255, 0, 0)
    kvalo.rectangle(chart, 1, 10, 4, 0.5)
    kvalo.text(chart, 0.5, 15, "half a $", 0, 128, 0)
    kvalo.flag(x=1.5, text="all")
    kvalo.flag(chart, y=7, text="limit")
    kvalo.mark(0.25, 0.5, "span")
    kvalo.datatip(chart, "ramp", 1)
    kvalo.datatip(chart, "far", 2)
    kvalo.datatip(chart, "nobody", 2)
    (figure,) = kvalo_view.figures()
    left, right = figure.axes
    picture = pixels(figure)
    assert left.axis() == before  # annotations never move the axes
    (circle,) = [c for c in left.collections if isinstance(c, EllipseCollection)]
    assert circle.get_offsets().tolist() == [[1, 10]]
    column, row = place(left, 1.25, 10)  # the right end of the diameter
    part = picture[row, column - 2 : column + 3]
    assert (part[:, 0] - part[:, 1]).max() > 100
    box = next(p for p in left.patches if isinstance(p, Rectangle) and not p.get_fill())
    assert (*box.get_xy(), box.get_width(), box.get_height()) == (0.75, 8, 0.5, 4)
    assert {t.get_text() for t in left.texts} == {"all", "span", r"half a \$", "limit", "ramp 10"}
    assert [t.get_text() for t in right.texts] == ["far 5000"]
    assert to_hex(next(t for t in left.texts if "half" in t.get_text()).get_color()) == "#008000"
    flags = [line for line in left.lines if line.get_zorder() == 6 and len(line.get_xdata()) == 2]
    assert sorted((*line.get_xdata(), *line.get_ydata()) for line in flags) == [
        (0, 1, 7, 7),
        (1.5, 1.5, 0, 1),
    ]


def test_annotations_far_away_are_left_out():
    chart = kvalo.plot(obj=series([0, 10, 20]), name="ramp")
    for far in (1e9, -1e300, math.inf, math.nan):
        kvalo.text(chart, far, far, "text")
        kvalo.circle(chart, far, far, 1)
        kvalo.rectangle(chart, far, far, 1, 1)
        kvalo.mark(far, 1, "mark")
        kvalo.datatip(chart, "ramp", far)
        if math.isfinite(far):
            kvalo.flag(chart, far, text="flag")
            kvalo.flag(chart, y=far, text="flag")
    kvalo.mark(-1e12, 2e12, "all")
    (axes,) = drawn()
    assert [t.get_text() for t in axes.texts] == ["all"]


def test_flags_of_all_charts_stay_on_time_axes():
    kvalo.fft(obj=wave())
    kvalo.flag(x=1.5, text="all")
    assert texts(kvalo_view.figures()[0]) == []


@cases(
    "form, t, digits, text",
    ("seconds", 3723.5, 1, "3723.5"),
    ("hms", 3723.5, 1, "1:02:03.5"),
    ("hms", -59.999, 2, "-0:01:00.00"),
    ("time", 1763697723.5, 1, "04:02:03.5"),
    ("datetime", 1763697723.5, 1, "2025-11-21 04:02:03.5"),
    ("datetime", 1e18, 0, "1000000000000000000"),
    ("time", math.nan, 0, ""),
)
def test_times(form, t, digits, text):
    assert times.time_text(t, form, digits) == text


@cases(
    "form, start, last",
    ("auto", 0, "40"),
    ("auto", 1763697600, "04:00:40"),
    ("hms", 3600, "1:00:40"),
    ("time", 3600, "01:00:40"),
)
def test_texts_of_time_axes(form, start, last):
    kvalo.set("timeformat", form)
    kvalo.plot(obj=series(np.zeros(46), start + np.arange(46)))
    (axes,) = drawn()
    ticks = {round(t.get_position()[0]) - start: t.get_text() for t in axes.get_xticklabels()}
    assert ticks[40] == last
    if start > 1e9:
        assert ticks[0] == "04:00:00\n2025-11-21"


def test_the_dark_theme():
    kvalo.set_config("dark", "file", "theme")
    kvalo.plot(obj=wave())
    (figure,) = kvalo_view.figures("200x120")
    assert to_hex(figure.get_facecolor()) == "#16191d"
    assert pixels(figure)[0, 0].tolist() == [0x16, 0x19, 0x1D]


# ---- files ----

MAGIC = {"png": b"\x89PNG", "svg": b"<?xml", "pdf": b"%PDF"}


@cases("form", *MAGIC)
def test_formats_of_files(tmp_path, form):
    chart = kvalo.plot(obj=wave())
    path = tmp_path / f"é.{form.upper()}"
    kvalo.save(str(path), chart, "500x300")
    assert path.read_bytes().startswith(MAGIC[form])
    if form == "png":
        assert imread(path).shape[:2] == (300, 500)
    if form == "svg":
        assert 'width="375pt" height="225pt"' in path.read_text("utf-8")  # 500 x 300 pixels


def test_a_page_is_a_grid_of_its_charts(tmp_path):
    kvalo.plot(obj=wave())
    page = kvalo.new_page("Attitude")
    for _ in range(3):
        kvalo.plot(obj=wave())
    kvalo.set_page(page, cols=2)
    figure = pictures.figure_of(0, "800x600")
    figure.canvas.draw()
    corners = sorted(
        (round(a.get_window_extent().x0, -2), round(a.get_window_extent().y0, -2)) for a in figure.axes
    )
    assert len({x for x, _ in corners}) == len({y for _, y in corners}) == 2
    kvalo.selfie(str(tmp_path / "page.png"))
    assert imread(tmp_path / "page.png").shape[:2] == (800, 1280)


@cases(
    "name, size, error, match",
    ("chart.bmp", "", ValueError, r"\.png, \.svg or \.pdf"),
    ("chart", "", ValueError, r"\.png, \.svg or \.pdf"),
    ("chart.png", "big", ValueError, "1600x900"),
    ("chart.png", "1600", ValueError, "1600x900"),
    ("chart.png", "-5x300", ValueError, "1600x900"),
    ("chart.png", "1x1", ValueError, "64 to 16384"),
    ("chart.png", "99999x200", ValueError, "64 to 16384"),
    ("chart.png", "16384x16384", ValueError, "at most 100,000,000"),
    ("nowhere/chart.png", "", OSError, "nowhere"),
)
def test_refused_files(tmp_path, name, size, error, match):
    chart = kvalo.plot(obj=wave())
    with pytest.raises(error, match=match):
        kvalo.save(str(tmp_path / name), chart, size)
    assert [path.name for path in tmp_path.iterdir() if path.stat().st_size] == []
    assert len(kvalo_view.figures()) == 1


def test_refused_requests(tmp_path):
    with pytest.raises(ValueError, match="draw one"):
        kvalo.selfie(str(tmp_path / "a.png"))
    kvalo.plot(obj=wave())
    with pytest.raises(ValueError, match="There is no chart 5"):
        kvalo.save(str(tmp_path / "a.png"), 5)
    with pytest.raises(FileNotFoundError, match="choose a folder"):
        kvalo.selfie(str(tmp_path / "nowhere" / "a.png"))
    with pytest.raises(SystemExit) as end:
        kvalo.exit()
    assert end.value.code == 0


# ---- the package in a process of its own ----


def test_a_plain_script_draws_without_pyplot(tmp_path):
    code = """
import sys, kvalo
chart = kvalo.plot(obj=kvalo.TimeSeries([0.0, 1.0], [1.0, 2.0]))
assert "matplotlib" not in sys.modules and "numpy" not in sys.modules
kvalo.save(sys.argv[1], chart)
assert "matplotlib.pyplot" not in sys.modules
"""
    path = tmp_path / "chart.png"
    done = run_script(code, str(path))
    assert (done.returncode, done.stderr) == (0, "")
    assert path.read_bytes().startswith(MAGIC["png"])


def test_another_host_stays():
    code = """
import sys
sys.path.insert(0, sys.argv[1])
import kvalo
from host import Host
recorder = Host()
kvalo.callback(recorder.capsule())
import kvalo_view
kvalo.plot(obj=kvalo.TimeSeries([0.0], [1.0]))
print(len(recorder), len(kvalo_view.figures()))
"""
    done = run_script(code, os.path.dirname(__file__))
    assert done.stdout == "1 0\n", done.stderr


def test_missing_matplotlib_is_named(tmp_path):
    code = """
import sys, kvalo
sys.modules["matplotlib"] = None
chart = kvalo.plot(obj=kvalo.TimeSeries([0.0, 1.0], [1.0, 2.0]))
try: kvalo.save(sys.argv[1], chart)
except RuntimeError as error: print(error)
"""
    assert "pip install matplotlib" in run_script(code, str(tmp_path / "a.png")).stdout


NOTEBOOK = """
import sys, types
shown, calls = [], []
class Shell:
    class events:
        register = staticmethod(lambda name, call: calls.append((name, call)))
ipython = types.ModuleType("IPython")
ipython.get_ipython, ipython.version_info = lambda: Shell, (9, 0)
ipython.display = types.ModuleType("IPython.display")
ipython.display.display = lambda data, raw: shown.append(data)
sys.modules |= {"IPython": ipython, "IPython.display": ipython.display}
import kvalo
s = kvalo.TimeSeries([0.0, 1.0], [1.0, 2.0])
a = kvalo.plot(obj=s)
((name, cell),) = calls
assert name == "post_run_cell"
cell(None)
assert len(shown) == 1 and shown[0]["image/png"].startswith(b"\\x89PNG") and str(a) in shown[0]["text/plain"]
cell(None)
assert len(shown) == 1
kvalo.plot(obj=s), kvalo.text(a, 0.5, 1.5, "here")
cell(None)
assert len(shown) == 3
cell(None)
assert len(shown) == 3
"""


def test_notebooks_show_what_a_cell_has_touched():
    done = run_script(NOTEBOOK)
    assert (done.returncode, done.stderr) == (0, "")


SHOW = """
import sys, kvalo
from pathlib import Path
from kvalo_view import page_server
page_server.ASSETS = Path(sys.argv[1])
import kvalo_view
kvalo.plot(obj=kvalo.TimeSeries([0.0, 1.0], [1.0, 2.0]))
kvalo_view.show()
print("left")
"""


def test_show_waits_until_it_is_interrupted(tmp_path):
    done = run_script(SHOW, str(tmp_path))
    assert "without its live page" in done.stderr
    (tmp_path / "index.html").write_text("")
    environment = {k: v for k, v in os.environ.items() if k not in ("DISPLAY", "WAYLAND_DISPLAY")}
    script = subprocess.Popen(
        [sys.executable, "-c", SHOW, str(tmp_path)], stdout=subprocess.PIPE, text=True, env=environment
    )
    address = script.stdout.readline().split()[1]
    assert address.startswith("http://127.0.0.1:")
    assert script.poll() is None
    script.send_signal(2)
    rest, _ = script.communicate(timeout=60)
    assert (script.returncode, rest.split()) == (0, ["left"])


def test_interactive_sessions_do_not_wait(tmp_path):
    (tmp_path / "index.html").write_text("")
    done = run_script("import sys\nsys.ps1 = '>>> '\n" + SHOW, str(tmp_path), DISPLAY="", WAYLAND_DISPLAY="")
    assert done.stdout.splitlines()[-1] == "left", done.stderr


def test_pictures_for_the_page():
    chart = kvalo.plot(obj=wave())
    picture = pictures.for_page(chart, "png", math.nan, math.nan)
    assert imread(io.BytesIO(picture)).shape[:2] == (675, 1200)
    assert pictures.for_page(chart, "svg", 1.0, 2.0).startswith(MAGIC["svg"])


def test_a_page_in_one_file(tmp_path, monkeypatch):
    chart = kvalo.plot(obj=series(np.sin(np.arange(100_000))))
    kvalo.plot(obj=wave(), style="dots")
    monkeypatch.setitem(sys.modules, "kvalo_view.page.assemble", None)
    with pytest.raises(RuntimeError, match="without its live page"):
        kvalo_view.save_page(tmp_path / "page.html")
    fake = types.SimpleNamespace(
        assemble=lambda folder, state, tiles: f"{len(tiles)} {tiles[0][48:52]} {state}"
    )
    monkeypatch.setitem(sys.modules, "kvalo_view.page", types.ModuleType("page"))
    monkeypatch.setitem(sys.modules, "kvalo_view.page.assemble", fake)
    kvalo_view.save_page(tmp_path / "page.html")
    text = (tmp_path / "page.html").read_text("utf-8")
    assert text.startswith(f"2 {(16384).to_bytes(4, 'little')} ")
    assert str(chart) in text


def test_following_a_container(tmp_path):
    path = tmp_path / "f.csv"
    path.write_text("time,speed,alt\n0,1,2\n1,3,4\n")
    log = kvalo.Container(path=str(path))
    chart = kvalo.plot(obj=log.speed, name="v", side="right")
    kvalo.plot(chart, wave())
    speed = log.speed
    speed += 1
    assert kvalo_view.follow(log) == 1
    (shown,) = json.loads(_view.state())["charts"]
    assert [(s["name"], s["side"], s["version"]) for s in shown["series"]][0] == ("v", "right", 2)
    assert memoryview(_view.samples(chart, 0)[1]).tolist() == [2, 4]


def test_following_a_live_source(live):
    c = live(samples=10)
    chart = kvalo.plot(obj=c.d, name="d")
    kvalo.boolplot(obj=c.d)
    c.rt_start()
    for n in range(1, 4):
        assert kvalo_view.follow(c) == 2
        x, _, _ = _view.samples(chart, 0)
        assert memoryview(x).tolist() == list(range(max(0, 4 * n - 10), 4 * n))
    c.rt_stop()
    (figure, _) = kvalo_view.figures("200x120")
    assert figure.axes[0].get_xlim() == (2, 11)


GALLERY = runpy.run_path(str(ROOT / "scripts" / "gallery.py"))["scripts"]()


@pytest.mark.parametrize("path", GALLERY, ids=lambda path: path.stem)
def test_scripts_of_the_gallery(path):
    names = {}
    exec(GALLERY[path], names)
    figure = pictures.figure_of(names["chart"], "640x360")
    figure.canvas.draw()
    assert figure.axes
    assert path.is_file()


def test_a_failed_load_keeps_its_error(tmp_path):
    """The host's Python side hears of it while the error is on its way to the script."""
    path = tmp_path / "empty.zip"
    path.write_bytes(b"")
    with pytest.raises(Exception, match="damaged"):
        kvalo.Container(path=str(path))
