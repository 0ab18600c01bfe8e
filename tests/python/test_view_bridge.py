"""kvalo_view._view as Python sees it: messages in, plain data out."""

import ctypes
import gc
import json
import struct
import urllib.error
import urllib.request

import pytest
from conftest import run_script
from kvalo_view import _view
from plugin_tools import BUILD

pointer_of = ctypes.pythonapi.PyCapsule_GetPointer
pointer_of.restype, pointer_of.argtypes = ctypes.c_void_p, [ctypes.py_object, ctypes.c_char_p]
# A handler may call Python: it is called as the module does, with the interpreter lock.
library = ctypes.PyDLL(str(BUILD / "tests" / "libview_sender.so"))
library.send_chart.argtypes = [
    ctypes.c_void_p,
    ctypes.c_char_p,
    ctypes.c_uint64,
    ctypes.c_uint64,
    ctypes.c_char_p,
]
library.send_chart.argtypes += [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_size_t]
library.send_save.argtypes = [ctypes.c_void_p, ctypes.c_uint64, ctypes.c_char_p]
HANDLER = pointer_of(_view.handler(), None)


def plot(chart, series, x, y, kind="chart2d_line"):
    array = ctypes.c_double * len(x)
    library.send_chart(HANDLER, kind.encode(), chart, series, b"Roll", array(*x), array(*y), len(x))


@pytest.fixture(autouse=True)
def _no_charts():
    _view.clear()
    yield
    _view.stop()
    _view.on_request(None)
    _view.clear()


def test_charts_as_plain_data():
    plot(2**63 + 1, 7, [0, 1, 2], [5, float("nan"), 6])
    state = json.loads(_view.state())
    (chart,) = state["charts"]
    assert (chart["id"], chart["kind"]) == (str(2**63 + 1), "line")
    assert [s["name"] for s in chart["series"]] == ["Roll"]
    assert (chart["series"][0]["ymin"], chart["series"][0]["ymax"]) == (5, 6)


def test_samples_are_read_only_buffers_that_outlive_the_chart():
    plot(1, 7, [0, 1, 2], [5, 6, 7])
    x, y, z = (memoryview(part) for part in _view.samples(1, 0))
    _view.clear()
    gc.collect()
    assert (x.tolist(), y.tolist(), z.tolist()) == ([0, 1, 2], [5, 6, 7], [])
    assert (y.format, y.shape, y.readonly) == ("d", (3,), True)
    with pytest.raises(TypeError):
        y[0] = 1
    with pytest.raises(KeyError):
        _view.samples(1, 0)


def test_what_is_drawn():
    plot(1, 7, range(10_000), [float(i % 100) for i in range(10_000)])
    tiles, error, x = _view.draw(1, width=50)
    assert (error, x) == ("", (0, 9999))
    form, _, _, chart, series = struct.unpack_from("<HHIII", tiles[0])
    assert (form, chart > 0, series, len(tiles[0])) == (1, True, 0, 96 + 17 * 50)
    assert _view.draw(5) == ([], "", None)
    plot(2, 7, [0, 1], [0, 1], "chart2d_bode")
    assert "two series" in _view.draw(2)[1]
    assert json.loads(_view.statistics(1, 0, 9))["values"][0]["mean"] == 4.5
    with pytest.raises(ValueError):
        _view.draw(1, width=0)


def test_requests_call_back_and_failures_are_raised():
    asked = []
    _view.on_request(lambda *request: asked.append(request))
    library.send_save(HANDLER, 5, "/x/é.png".encode())
    assert asked == [("save", 5, "/x/é.png", "")]
    _view.on_request(lambda *_: 1 / 0)
    with pytest.raises(ZeroDivisionError):
        library.send_save(HANDLER, 5, b"x")


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")  # the second picture fails
def test_server_and_pictures():
    def picture(chart, form, t0, t1):
        return f"{chart} {form} {t0} {t1}".encode() if form == "png" else None

    plot(1, 7, [0, 1], [0, 1])
    address = _view.serve(str(BUILD), "title", picture=picture)
    assert _view.serve(str(BUILD)) == address
    assert urllib.request.urlopen(f"{address}chart/1.png?t0=1&t1=2").read() == b"1 png 1.0 2.0"
    with pytest.raises(urllib.error.HTTPError) as failure:
        urllib.request.urlopen(f"{address}chart/1.svg")
    assert failure.value.code == 500
    assert not _view.wait_left(0.01)
    _view.stop()
    assert (_view.address(), _view.clients(), _view.wait_left()) == ("", 0, True)
    with pytest.raises(urllib.error.URLError):
        urllib.request.urlopen(address)


def test_a_chart_shows_what_was_there_when_it_was_plotted():
    done = run_script("""
import json
import kvalo
from kvalo_view import _view

kvalo.callback(_view.handler())
series = kvalo.TimeSeries([0.0, 1.0, 2.0], [5.0, 6.0, 7.0])
chart = kvalo.plot(obj=series, name="Roll")
assert kvalo.plot(id=chart, obj=series) == chart
kvalo.mark(0.5, 1.0, "climb")
state = json.loads(_view.state())
assert [(c["id"], len(c["series"]), c["series"][0]["version"]) for c in state["charts"]] == [(str(chart), 1, 2)]
assert state["objects"][0]["text"] == "climb"
series += 1
series.ydata[0] = 99.0
assert memoryview(_view.samples(chart, 0)[1]).tolist() == [5.0, 6.0, 7.0]
kvalo.close("charts")
assert json.loads(_view.state())["charts"] == []
""")
    assert done.returncode == 0, done.stderr
