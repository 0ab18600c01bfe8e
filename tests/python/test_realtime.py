"""Live sources: the state on line, receiving, and what happens to those who hold samples."""

import gc
import resource
import time
from pathlib import Path

import kvalo
import numpy as np
import pytest
from common import cases, in_threads, opened, refused, series, xs, ys
from conftest import run_script
from plugin_tools import EXAMPLES, NASTY, TEST_PLUGINS, calls

SENSOR = str(EXAMPLES / "sensor.so")


@pytest.fixture
def live():
    """Makes live containers; afterwards the process is off line again."""
    made = []

    def make(plugin=NASTY, **arguments):
        made.append(kvalo.Container(plugin=str(plugin), realtime=True, **arguments))
        return made[-1]

    yield make
    made.clear()
    gc.collect()


def is_online():
    try:
        series([0, 1]).avg()
    except RuntimeError as error:
        return "while there's an active real-time data connection" in str(error)
    return False


def test_on_line_from_construction_until_any_container_goes(live, tmp_path):
    assert not is_online()
    c = live()
    assert is_online()
    assert len(c.get_path()) == 1
    other = opened(tmp_path / "f.csv")
    assert is_online()
    for call, *arguments in ((other.axpb, 1, 2), (other.merge, "f.csv"), (kvalo.derivative, c.d)):
        with pytest.raises(RuntimeError, match="active real-time data connection"):
            call(*arguments)
    del other, call
    gc.collect()
    assert not is_online()
    c.rt_read()
    assert len(c.d) == 4


def test_reading(live):
    c = live(samples=10)
    calls()
    assert (len(c.d), repr(c.d), len(c.a)) == (0, "kvalo.TimeSeries is empty", 0)
    x, y = c.a.b.xdata, c.a.b.ydata
    c.rt_start()
    for n in range(1, 8):
        c.rt_read()
        held = range(max(0, 4 * n - 10), 4 * n)
        assert (c.a.b.xdata is x, c.a.b.ydata is y) == (True, True)
        assert list(x) == [float(i) for i in held]
        assert list(y) == [50 + i % 4 for i in held]
        assert len(c["c"]) == len(c.d) == len(held)
    c.rt_stop()
    got = calls()
    assert (got[0], got[-1], len(got)) == ("Start live", "Stop live", 2 + 7 * 4)
    c.d.load()
    assert len(c.d) == 10


@cases("room, held", (0, 4), (1, 4), (4, 4), (5, 5), (4294967295, 20))
def test_a_delivery_is_never_cut(live, room, held):
    c = live(samples=room)
    for _ in range(5):
        c.rt_read()
    assert list(c.d.xdata) == [float(i) for i in range(20 - held, 20)]


def test_views_copies_and_results_keep_what_they_saw(live):
    c = live(samples=6)
    c.rt_read()
    view = np.asarray(c.d.ydata)
    times = memoryview(c.d.xdata)
    copy = kvalo.TimeSeries(c.d)
    by_id = kvalo.TimeSeries(c.d.id64, 0.0, 1.0)
    c.rt_read()
    assert view.tolist() == [30, 31, 32, 33]
    view[:] = 0
    for _ in range(19):
        assert list(c.d.ydata) == [32, 33, 30, 31, 32, 33]
        c.rt_read()
    assert view.tolist() == [0, 0, 0, 0]
    assert times.tolist() == [0, 1, 2, 3]
    # A copy has the very same Arrays, and so has the latest samples; so has every series of that id.
    assert list(copy.xdata) == list(c.d.xdata) == list(by_id.xdata) == [78, 79, 80, 81, 82, 83]
    c.d.ydata[0] = 7
    assert copy.ydata[0] == 7


def test_an_array_put_in_by_the_script_is_left_alone(live):
    c = live()
    mine = kvalo.Array([1, 2])
    c.d.ydata = mine
    c.d.xdata = 5
    c.rt_read()
    assert list(mine) == [1, 2]
    assert (xs(c.d), ys(c.d)) == ([0, 1, 2, 3], [30, 31, 32, 33])


def go_off_line():
    kvalo.Container(plugin=str(NASTY), realtime=True)  # and gone at once
    gc.collect()
    assert not is_online()


@pytest.fixture
def sensor(live):
    """Makes live containers of the sensor with so many samples in a second."""

    def make(rate, channels="", **arguments):
        kvalo.set_config(rate, "sensor_rate")
        kvalo.set_config(channels, "sensor_channels")
        return live(SENSOR, **arguments)

    yield make
    for key in ("sensor_rate", "sensor_channels"):
        kvalo.set_config("", key)


def test_results_that_share_times_keep_them(sensor):
    c = sensor("100000", samples=50_000)
    c.rt_start()
    while len(c["000"]) < 50_000:
        time.sleep(0.01)
        c.rt_read()
    go_off_line()
    for _ in range(10):
        result = c["000"] * 2
        before = xs(result)
        time.sleep(0.01)
        c.rt_read()
        c["000"].xdata[0] = -1.0
        assert xs(result) == before


def test_gain_and_offset_apply_to_what_is_received_later(live):
    c = live(samples=8)
    c.rt_read()
    go_off_line()
    c.aypb(2, 1)
    c.rt_read()
    assert list(c.d.ydata) == [2 * v + 1 for v in (30, 31, 32, 33)] * 2


def test_failures_are_reported_after_everything_is_read(live, monkeypatch):
    c = live()
    monkeypatch.setenv("NASTY_LIVE_FAILS", "1")
    with pytest.raises(RuntimeError, match="^the long reason$"):
        c.rt_read()
    assert (len(c.d), len(c.fails), len(c.a.b)) == (4, 0, 4)
    monkeypatch.setenv("NASTY_START", "1")
    with pytest.raises(RuntimeError, match="^cannot start$"):
        c.rt_start()
    without = live(TEST_PLUGINS / "without_Start.so")
    with pytest.raises(RuntimeError, match="^Could not load function 'Start'$"):
        without.rt_start()


def test_refused_construction(tmp_path):
    for plugin, text in (
        ("none.so", "Plugin none.so not found"),
        (__file__, "Extension not supported for plugin"),
        (str(TEST_PLUGINS / "without_Initialize.so"), "Could not load function 'Initialize'"),
    ):
        text = f"^Error while loading data from real-time source with plugin '{plugin}': {text}$"
        refused(text, plugin=plugin, realtime=True)
        assert not is_online()
    # In a process of its own, as the message goes to a host where there is one.
    done = run_script("import kvalo; kvalo.Container(plugin='none.so', realtime=1)", KVALO_HOME=str(tmp_path))
    assert done.returncode == 1
    assert "Error with real-time data connection!" in (tmp_path / "kvalo.log").read_text()


def test_other_containers_have_nothing_to_start(tmp_path):
    c = opened(tmp_path / "f.csv")
    assert (c.rt_start(), c.rt_read(), c.rt_stop()) == (None, None, None)
    assert c.a.xdata is None


def test_bit_fields_of_live_variables_follow_them(tmp_path):
    (tmp_path / "unpack.csv").write_text("variable,name,msb,lsb,base,gain,bias,type\nd,low,1,0,0,1,0,USGN\n")
    code = """
import sys, kvalo
c = kvalo.Container(plugin=sys.argv[1], realtime=True, samples=6)
for n in range(3):
    c.rt_read()
    print(c["low"].xdata.to_list(), c["low"].ydata.to_list())
"""
    done = run_script(code, str(NASTY), KVALO_HOME=str(tmp_path))
    assert done.stdout.splitlines() == [
        "[0.0, 1.0, 2.0, 3.0] [2.0, 3.0, 0.0, 1.0]",
        "[2.0, 3.0, 4.0, 5.0, 6.0, 7.0] [0.0, 1.0, 2.0, 3.0, 0.0, 1.0]",
        "[6.0, 7.0, 8.0, 9.0, 10.0, 11.0] [0.0, 1.0, 2.0, 3.0, 0.0, 1.0]",
    ], done.stderr


def test_samples_are_never_dropped_for_room(tmp_path):
    code = """
import sys, kvalo
c = kvalo.Container(plugin=sys.argv[1], realtime=True)
c.rt_read()
kvalo.Array(1000000)
assert len(c.d) == 4, len(c.d)
"""
    done = run_script(code, str(NASTY), KVALO_MEMORY_BANK="1000")
    assert done.returncode == 0, done.stderr


def test_a_running_source_is_stopped_in_the_end():
    code = "import sys, kvalo\nc = kvalo.Container(plugin=sys.argv[1], realtime=True)\nc.rt_start()\n"
    again = "c.__init__(plugin=sys.argv[1], realtime=1)"
    for end in ("", "sys.keep = c", "del c", again):
        done = run_script(code + end, str(NASTY), NASTY_PRINTS="1")
        expected = "Stop\nTerminate\n" + ("Terminate\n" if end == again else "")
        assert (done.returncode, done.stdout) == (0, expected), done.stderr
    done = run_script(code + "sys.keep = c; c.rt_read()", SENSOR)
    assert done.returncode == 0, done.stderr


def test_a_hundred_channels_at_a_kilohertz(sensor):
    c = sensor("1000", "100", samples=500)
    c.rt_start()
    held = []
    end = time.monotonic() + 2
    while time.monotonic() < end:
        c.rt_read()
        held.append(xs(c["000"]))
        time.sleep(0.02)
    c.rt_stop()
    c.rt_read()
    numbers = [np.rint(np.asarray(times) * 1000).astype(int) for times in [*held, xs(c["000"])]]
    assert all(np.all(np.diff(seen) == 1) for seen in numbers)
    seen = np.unique(np.concatenate(numbers))
    assert np.array_equal(seen, range(len(seen)))  # no sample was lost between reads
    assert len(seen) > 1000
    assert len(c["099"]) >= 500
    t = np.asarray(c["099"].xdata)
    assert np.allclose(np.asarray(c["099"].ydata), np.sin(2 * np.pi * 10 * t), atol=1e-9)


def test_receiving_takes_constant_memory(live):
    def kilobytes():
        return int(Path("/proc/self/statm").read_text().split()[1]) * resource.getpagesize() // 1024

    c = live(samples=500)
    sizes = []
    for _ in range(2):
        for _ in range(30_000):
            c.rt_read()
        sizes.append(kilobytes())
    assert (len(c.d), c.d.xdata[-1]) == (500, 239_999)
    assert int(repr(c.d).removeprefix("500 elements, ").removesuffix("kB")) <= 16
    if "libasan" not in Path("/proc/self/maps").read_text():  # which keeps what is freed for a while
        assert sizes[1] - sizes[0] < 3000  # what was received meanwhile takes 9600


def test_threads_that_read_one_source_keep_its_order(live):
    c = live(samples=100_000)

    def read(times):
        for _ in range(times):
            c.rt_read()

    in_threads(read, 500, 500, 500, 500)
    assert xs(c.d) == [float(i) for i in range(4 * 500 * 4)]
