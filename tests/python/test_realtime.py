"""Live sources: the state on line, receiving, and what happens to those who hold samples."""

import gc
import resource
import threading
import time
from pathlib import Path

import kvalo
import numpy as np
import pytest
from conftest import run_script
from plugin_tools import EXAMPLES, NASTY, TEST_PLUGINS, calls, log_text

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
        kvalo.TimeSeries([0, 1], [0, 1]).avg()
    except RuntimeError as error:
        return "while there's an active real-time data connection" in str(error)
    return False


def test_on_line_from_construction_until_any_container_goes(live, tmp_path):
    assert not is_online()
    c = live()
    assert is_online()
    assert len(c.get_path()) == 1
    table = tmp_path / "f.csv"
    table.write_text("t,a\n0,1\n1,2\n2,3\n")
    other = kvalo.Container(path=str(table))
    assert is_online()
    for refused, *arguments in ((other.axpb, 1, 2), (other.merge, str(table)), (kvalo.derivative, c.d)):
        with pytest.raises(RuntimeError, match="active real-time data connection"):
            refused(*arguments)
    del other, refused
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


@pytest.mark.parametrize(("samples", "held"), [(0, 4), (1, 4), (4, 4), (5, 5), (4294967295, 20)])
def test_a_delivery_is_never_cut(live, samples, held):
    c = live(samples=samples)
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
    assert (list(c.d.xdata), list(c.d.ydata)) == ([0, 1, 2, 3], [30, 31, 32, 33])


def go_off_line():
    kvalo.Container(plugin=str(NASTY), realtime=True)  # and gone at once
    gc.collect()
    assert not is_online()


def test_results_that_borrow_times_keep_them(live):
    kvalo.set_config("100000", "sensor_rate")
    c = live(SENSOR, samples=50_000)
    kvalo.set_config("", "sensor_rate")
    c.rt_start()
    while len(c["000"]) < 50_000:
        time.sleep(0.01)
        c.rt_read()
    go_off_line()
    for _ in range(10):
        result = c["000"] * 2
        before = result.xdata.to_list()
        time.sleep(0.01)
        c.rt_read()
        c["000"].xdata[0] = -1.0
        assert result.xdata.to_list() == before


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


def test_refused_construction():
    for plugin, text in (
        ("none.so", "Plugin none.so not found"),
        (__file__, "Extension not supported for plugin"),
        (str(TEST_PLUGINS / "without_Initialize.so"), "Could not load function 'Initialize'"),
    ):
        start = "^Error while loading data from real-time source with plugin"
        with pytest.raises(Exception, match=f"{start} '{plugin}': {text}$"):
            kvalo.Container(plugin=plugin, realtime=True)
        assert "Error with real-time data connection!" in log_text()
        assert not is_online()


def test_other_containers_have_nothing_to_start(tmp_path):
    (tmp_path / "f.csv").write_text("t,a\n0,1\n1,2\n2,3\n")
    c = kvalo.Container(path=str(tmp_path / "f.csv"))
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
    times = ("[0.0, 1.0, 2.0, 3.0]", "[2.0, 3.0, 4.0, 5.0, 6.0, 7.0]", "[6.0, 7.0, 8.0, 9.0, 10.0, 11.0]")
    values = ("[2.0, 3.0, 0.0, 1.0]", "[0.0, 1.0, 2.0, 3.0, 0.0, 1.0]", "[0.0, 1.0, 2.0, 3.0, 0.0, 1.0]")
    assert done.stdout.splitlines() == [f"{t} {v}" for t, v in zip(times, values, strict=True)], done.stderr


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
    for code in (
        "c = kvalo.Container(plugin=sys.argv[1], realtime=True); c.rt_start()",
        "sys.keep = kvalo.Container(plugin=sys.argv[1], realtime=True); sys.keep.rt_start()",
        "c = kvalo.Container(plugin=sys.argv[1], realtime=True); c.rt_start(); del c",
        "c = kvalo.Container(plugin=sys.argv[1], realtime=True); c.rt_start(); c.__init__(plugin=sys.argv[1], realtime=1)",
    ):
        done = run_script("import sys, kvalo; " + code, str(NASTY), NASTY_PRINTS="1")
        expected = "Stop\nTerminate\n" + ("Terminate\n" if "__init__" in code else "")
        assert (done.returncode, done.stdout) == (0, expected), done.stderr
    done = run_script("import sys, kvalo; sys.keep = c = kvalo.Container(plugin=sys.argv[1], realtime=True)\n"
                      "c.rt_start(); c.rt_read()", SENSOR)  # fmt: skip
    assert done.returncode == 0, done.stderr


def read_for(c, seconds, held):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        c.rt_read()
        held.append(c["000"].xdata.to_list())
        time.sleep(0.02)


def consecutive(times, rate):
    numbers = np.rint(np.asarray(times) * rate).astype(int)
    return np.all(np.diff(numbers) == 1)


def test_a_hundred_channels_at_a_kilohertz(live):
    kvalo.set_config("1000", "sensor_rate")
    kvalo.set_config("100", "sensor_channels")
    try:
        c = live(SENSOR, samples=500)
    finally:
        kvalo.set_config("", "sensor_rate")
        kvalo.set_config("", "sensor_channels")
    c.rt_start()
    held = []
    read_for(c, 2, held)
    c.rt_stop()
    c.rt_read()
    held.append(c["000"].xdata.to_list())
    assert all(consecutive(times, 1000) for times in held)
    seen = sorted({round(t * 1000) for times in held for t in times})
    assert seen == list(range(len(seen)))  # no sample was lost between reads
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

    def read():
        for _ in range(500):
            c.rt_read()

    threads = [threading.Thread(target=read) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert c.d.xdata.to_list() == [float(i) for i in range(4 * 500 * 4)]
