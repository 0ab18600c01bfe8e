"""Chart, annotation, page and display commands: what the host is sent."""

import contextlib
import gc
import math

import kvalo
import numpy as np
import pytest
from common import cases
from host import name_hash

UNSET = {"param": -1, "param2": -1, "width": -1, "red": -1, "green": -1, "blue": -1}
UNSET |= {"vmin": 1e100, "vmax": 1e100, "side": 0, "style": 0}
LONG = "x" * 2000


@pytest.fixture
def series():
    return kvalo.TimeSeries([0, 1, 2], [5, -6, 7])


def fields(message, names):
    return {name: getattr(message, name) for name in names}


@cases(
    "command, kind, options, sent",
    ("plot", "chart2d_line", {}, {}),
    ("plot", "chart2d_line", {"side": "LEFT", "style": "Dots"}, {"side": 0, "style": 2}),
    ("plot", "chart2d_line", {"side": "anything", "style": "BOOL"}, {"side": 1, "style": 1}),
    ("plot", "chart2d_line", {"style": "unknown"}, {"style": 0}),
    ("boolplot", "chart2d_bool", {}, {}),
    ("bode", "chart2d_bode", {}, {}),
    ("crossplot", "chart2d_cross", {"side": "right"}, {"side": 1}),
    ("fft", "chart2d_fft", {}, {}),
    ("heatmap", "chart2d_heatmap", {}, {}),
    ("hist", "chart2d_hist", {}, {"param": 8, "style": 3}),
    ("hist", "chart2d_hist", {"type": "Bar", "nbins": 20}, {"param": 20, "style": 3}),
    ("hist", "chart2d_hist", {"type": "line"}, {"param": 8, "style": 4}),
    ("spectrogram", "chart2d_spectro", {}, {"param": 256, "vmin": 0.1}),
    ("spectrogram", "chart2d_spectro", {"nfft": 64, "overlap": 0.5}, {"param": 64, "vmin": 0.5}),
    ("xcorrplot", "chart2d_xcorr", {"side": "right"}, {"side": 1}),
    ("plot3d", "chart3d_line", {}, {}),
    ("synoptic", "chart1d_synoptic", {}, {}),
    (
        "synoptic",
        "chart1d_synoptic",
        dict(x=3, y=4, width=5, min=-1, max=2.5, red=255, green=0, blue=7),
        dict(param=3, param2=4, width=5, vmin=-1, vmax=2.5, red=255, green=0, blue=7),
    ),
)
def test_charts_of_a_series(host, series, command, kind, options, sent):
    chart = getattr(kvalo, command)(obj=series, **options)
    (message,) = host
    assert message.message_id == name_hash(kind)
    assert fields(message, UNSET) == UNSET | sent
    assert (message.id, message.series_id, message.flags) == (chart, series.id64, series.flags)
    assert (message.name, message.full_name) == ("series", "")
    assert (message.x.tolist(), message.y.tolist(), message.z.tolist()) == ([0, 1, 2], [5, -6, 7], [])
    assert getattr(kvalo, command)(chart, series, "shown as") == chart
    assert (host[1].id, host[1].name) == (chart, "shown as")


def test_a_chart_without_a_series_is_new_and_empty(host):
    first, second = kvalo.plot(), kvalo.plot()
    assert 0 not in (first, second)
    assert first != second
    assert [(m.id, m.series_id, m.name, len(m.x)) for m in host] == [(first, 0, "", 0), (second, 0, "", 0)]


def test_names_come_from_the_file_or_the_script(host, tmp_path):
    path = tmp_path / "log.csv"
    path.write_text("time,speed,speed over ground\n0,1,2\n1,3,4\n")
    log = kvalo.Container(path=str(path))
    kvalo.plot(obj=log.speed)
    kvalo.plot(name="speed over ground")  # loads what has that name, and only the whole name counts
    local = log.speed * 2
    kvalo.plot(obj=local)
    kvalo.plot(obj=log.speed * 3)
    assert [m.name for m in host] == ["speed", "speed over ground", "local", "n/a"]
    assert [m.full_name for m in host] == ["speed", "speed over ground", "", ""]
    assert host[1].y.tolist() == [2, 4]
    for pattern in ("spee.", "nosuch", ""):
        with pytest.raises(Exception, match=rf"^Could not find variable '{pattern}'$"):
            kvalo.plot(name=pattern)


@cases("command", "plot", "fft", "heatmap", "plot3d", "synoptic")
def test_refused_charts(host, command):
    call = getattr(kvalo, command)
    for wrong in (3, None, "speed", kvalo.Array([1])):
        with pytest.raises(TypeError, match=r"^Argument must be a kvalo.TimeSeries object$"):
            call(obj=wrong)
    uneven = kvalo.TimeSeries([0, 1], [2, 3])
    uneven.xdata = kvalo.Array(5)
    with pytest.raises(ValueError, match="5 times for 2 values"):
        call(obj=uneven)
    with pytest.raises(NotImplementedError, match=r"Use kvalo.plot\(\) instead"):
        kvalo.scatterplot(uneven)
    assert len(host) == 0


def test_a_mesh_is_sent_with_its_three_axes(host):
    surface = kvalo.create_mesh_sinc()
    chart = kvalo.mesh(surface)
    (message,) = host
    assert (message.message_id, message.id, message.name) == (name_hash("chart3d_mesh"), chart, "surface")
    assert (message.series_id, message.flags) == (surface.id64, surface.flags)
    for axis in "xyz":
        assert np.array_equal(getattr(message, axis), np.asarray(getattr(surface, f"{axis}data")))
    with pytest.raises(TypeError, match=r"^Argument must be a kvalo.Mesh object$"):
        kvalo.mesh(kvalo.TimeSeries([0], [1]))
    with pytest.raises(ValueError, match="has no data"):
        kvalo.mesh(kvalo.Mesh())


# ---- a record is a snapshot ----


@cases(
    "write",
    lambda s: s.__setitem__(1, (9.0, 9.0)),
    lambda s: s.ydata.__setitem__(0, 9.0),
    lambda s: s.__iadd__(1),
    lambda s: s.ydata.__imul__(2),
    lambda s: s.sort(),
    lambda s: (s.axpb(2, 1), s.aypb(2, 1)),
    lambda s: (np.asarray(s.xdata).fill(9), np.asarray(s.ydata).fill(9)),
)
def test_what_the_script_writes_later_does_not_reach_the_host(host, write):
    s = kvalo.TimeSeries([2, 1, 0], [5, -6, 7])
    view = np.asarray(s.ydata)  # open before and while the record is sent
    kvalo.plot(obj=s)
    view[2] = 70
    write(s)
    del view
    gc.collect()
    write(s)
    assert (host[0].x.tolist(), host[0].y.tolist()) == ([2, 1, 0], [5, -6, 7])


def test_samples_are_shared_until_somebody_writes(host):
    s = kvalo.TimeSeries([0, 1], [2, 3])
    t = s * 2
    kvalo.plot(obj=s), kvalo.plot(obj=t)
    address = host[0].x.ctypes.data
    assert address == host[1].x.ctypes.data
    s[0] = (9.0, 9.0)
    assert np.asarray(t.xdata).ctypes.data != address  # a view never shows what others hold


def test_a_host_reads_on_another_thread_while_the_script_writes(host):
    s = kvalo.TimeSeries("s")
    s.xdata, s.ydata = kvalo.Array(50_000), kvalo.Array(50_000)
    for _ in range(20):
        kvalo.plot(obj=s)
        host.library.recorder_start_reading(len(host) - 1)
        s += 1
        s[7] = 3.0
        s.aypb(2, 1)
        np.asarray(s.ydata)[:] = 5
        assert host.library.recorder_stop_reading() == 0


# ---- settings of a chart, files ----


def test_set_chart(host):
    limits = ("lmax", "lmin", "rmax", "rmin", "ltick", "rtick")
    kvalo.set_chart(5)
    kvalo.set_chart(6, 1, 2, 3, 4, 5, 6, "Left", "naïve " + LONG)
    assert fields(host[0], limits) == dict.fromkeys(limits, -1e80)
    assert (host[0].id, host[0].fit, host[0].xlabel) == (5, "0", bytes(64))
    assert fields(host[1], limits) == dict(zip(limits, range(1, 7), strict=True))
    assert (host[1].fit, host[1].xlabel) == ("l", ("naïve " + LONG).encode()[:63] + b"\0")


def test_save(host, tmp_path):
    path = str(tmp_path / "chart.png")
    kvalo.save(path)
    kvalo.save(path, 7, "800x600")
    assert [(m.id, m.path.rstrip(b"\0").decode(), m.size.rstrip(b"\0")) for m in host] == [
        (0, path, b""),
        (7, path, b"800x600"),
    ]
    assert not (tmp_path / "chart.png").exists()
    with pytest.raises(PermissionError, match="nowhere"):
        kvalo.save(str(tmp_path / "nowhere" / "chart.png"))
    with pytest.raises(ValueError, match="shorter than 64 bytes"):
        kvalo.save(path, size=LONG)
    assert len(host) == 2


# ---- annotations and pages ----

PLAIN = {"chart": 0, "x": 0, "y": 0, "xcenter": 0, "ycenter": 0, "diameter": 0, "height": 0, "width": 0}
PLAIN |= {"red": -1, "green": -1, "blue": -1, "visible": 1, "full": 0}
COLOURS = {"red": 1, "green": 2, "blue": 3}


@cases(
    "call, kind, sent, text",
    (
        lambda: kvalo.circle(1, 0.5, 0.25, 0.1),
        "circle",
        dict(chart=1, xcenter=0.5, ycenter=0.25, diameter=0.1),
        "",
    ),
    (lambda: kvalo.circle(1, 0, 0, 0, 1, 2, 3), "circle", {"chart": 1} | COLOURS, ""),
    (lambda: kvalo.datatip(2, "speed", 4), "datatip", {"chart": 2, "x": 4}, "speed"),
    (lambda: kvalo.flag(x=1.0), "flag", {"x": 1, "y": math.nan}, "label"),
    (lambda: kvalo.flag(chart=3, y=2.0, text=""), "flag", {"chart": 3, "x": math.nan, "y": 2}, ""),
    (lambda: kvalo.mark(1, 2, "here", **COLOURS), "mark", {"x": 1, "width": 2} | COLOURS, "here"),
    (lambda: kvalo.legend(2), "legend", {"chart": 2}, ""),
    (lambda: kvalo.legend(2, 3, 4, 0, 1), "legend", dict(chart=2, x=3, y=4, visible=0, full=1), ""),
    (
        lambda: kvalo.rectangle(1, 2, 3, 4, 5),
        "rectangle",
        dict(chart=1, xcenter=2, ycenter=3, height=4, width=5),
        "",
    ),
    (lambda: kvalo.text(1, 2, 3, "é" * 255), "text", dict(chart=1, x=2, y=3), "é" * 255),
)
def test_annotations(host, call, kind, sent, text):
    assert call() is None
    (message,) = host
    assert message.message_id == name_hash(f"obj2d_{kind}")
    assert fields(message, PLAIN) == pytest.approx(PLAIN | sent, nan_ok=True)
    assert message.text == text.encode().ljust(512, b"\0")


@cases(
    "arguments, problem",
    ({}, "Must provide value for either 'x' or 'y'"),
    ({"x": 1, "y": 2}, "Must provide value for either 'x' or 'y'"),
    ({"y": 2.0}, "Must provide chart when creating horizontal flags"),
    ({"x": 1, "text": LONG}, "The text must be shorter than 512 bytes (2000 given)"),
)
def test_refused_flags(host, arguments, problem):
    with pytest.raises(ValueError) as failed:
        kvalo.flag(**arguments)
    assert str(failed.value) == problem
    assert len(host) == 0


def test_pages(host):
    page = kvalo.new_page("A")
    assert page != 0
    assert kvalo.new_page("A", 7, "B") == 7
    kvalo.new_page(LONG)
    kvalo.set_page(7)
    kvalo.set_page(id=7, cols=3)
    kvalo.del_page(name="B")
    names = [m.name.rstrip(b"\0") for m in (*list(host)[:3], host[5])]
    assert names == [b"A", b"B", LONG.encode()[:512], b"B"]
    assert [m.id for m in host][0:2] == [page, 7]
    assert [(m.id, m.cols) for m in list(host)[3:5]] == [(7, -1), (7, 3)]
    with pytest.raises(ValueError, match="The name must be shorter than 512 bytes"):
        kvalo.del_page(name=LONG)


# ---- what the host shows ----


@cases(
    "call, message, key, values",
    (lambda: kvalo.set("TAB", 4), "misc_set", "tab", (4, None)),
    (lambda: kvalo.set("TimeFormat", "Seconds"), "misc_set", "timeformat", (name_hash("seconds"), None)),
    (lambda: kvalo.set("timelimits", 1, 2.5), "misc_set", "timelimits", (1.0, 2.5)),
    (lambda: kvalo.set("zoom", -1, True), "misc_set", "timelimits", (-1.0, 1.0)),
    (lambda: kvalo.set("globaltime", 3), "misc_set", "globaltime", (3.0, None)),
    (lambda: kvalo.bookmark(10, 2), "misc_bookmark", "bookmark", (2.0, 10.0)),
    (lambda: kvalo.reset(), "misc_reset", "all", (None, None)),
    (lambda: kvalo.close(), "misc_close", "all", (None, None)),
    (lambda: kvalo.close("Pages"), "misc_close", "pages", (None, None)),
    (lambda: kvalo.close(what="charts", id=2**63), "misc_close", "charts", (2**63, None)),
)
def test_display_settings(host, call, message, key, values):
    assert call() is None
    (sent,) = host
    assert (sent.message_id, sent.key, sent.values) == (name_hash(message), name_hash(key), values)
    assert sent.text == bytes(1024)


@cases(
    "call, error, problem",
    (lambda: kvalo.set("tab"), ValueError, "Function 'misc_set' takes at least 2 arguments (1 given)"),
    (lambda: kvalo.set(1, 2), TypeError, "First argument must be a string"),
    (lambda: kvalo.set("tab", "2"), TypeError, "Second argument must be an integer"),
    (lambda: kvalo.set("TAB", 5), ValueError, "Second argument must be an integer from 1 to 4"),
    (lambda: kvalo.set("tab", 2**70), ValueError, "Second argument must be an integer from 1 to 4"),
    (lambda: kvalo.set("timeformat", 3), TypeError, "Second argument must be a string"),
    (lambda: kvalo.set("zoom", 1), ValueError, "Function 'misc_set' takes 3 arguments (2 given)"),
    (lambda: kvalo.set("zoom", 2, 2), ValueError, "Initial time must be less than final time"),
    (lambda: kvalo.set("zoom", math.nan, 2), ValueError, "Initial time must be less than final time"),
    (lambda: kvalo.set("globaltime", "now"), TypeError, "Second argument must be a number"),
    (lambda: kvalo.set("colour", 1), ValueError, "Unknown attribute"),
    (lambda: kvalo.close("windows"), ValueError, "Argument 'what' must be 'all', 'pages' or 'charts'"),
    (
        lambda: kvalo.close(id=3),
        ValueError,
        "Argument 'id' needs what='pages' or what='charts', to tell what it is the id of",
    ),
)
def test_refused_display_settings(host, call, error, problem):
    with pytest.raises(error) as failed:
        call()
    assert str(failed.value) == problem
    assert len(host) == 0


def test_an_unknown_time_format_is_sent_with_a_warning(host, capfd):
    kvalo.set("timeformat", "sundial")
    assert host[0].values[0] == name_hash("sundial")
    assert "'sundial' is not a known time format" in capfd.readouterr().out


def test_a_live_source_refuses_annotations_and_settings_but_not_charts(host, live, series):
    container = live()
    kvalo.plot(obj=series)
    kvalo.set_chart(1), kvalo.set_page(1), kvalo.bookmark(1, 2)
    assert len(host) == 4
    refused = {
        "obj2d_circle": lambda: kvalo.circle(1, 2, 3, 4),
        "obj2d_flag": lambda: kvalo.flag(),
        "obj2d_legend": lambda: kvalo.legend(1),
        "misc_set": lambda: kvalo.set("tab", 1),
        "reset": lambda: kvalo.reset(),
        "close": lambda: kvalo.close(),
    }
    for name, call in refused.items():
        with pytest.raises(RuntimeError, match=f"^Function '{name}' cannot be used while"):
            call()
    assert len(host) == 4
    with contextlib.suppress(Exception):
        container.rt_stop()
