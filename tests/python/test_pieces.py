"""Containers cut into pieces, given another clock, and with variables unpacked from bits."""

import re

import kvalo
import pytest
from common import opened, series
from common import samples as both
from conftest import run_script


@pytest.fixture
def log(tmp_path):
    rows = [f"{t},{int(t in (2, 3, 7, 8, 9))},{10 * t}" for t in range(10)]
    return opened(tmp_path / "log.csv", "\n".join(["time,event,y", *rows]))


def samples(ts):
    return list(zip(*both(ts), strict=True))


def test_split_makes_one_container_for_each_event(log):
    slow = kvalo.TimeSeries([0, 2.5, 8], [0, 1, 0])
    pieces = log.split(log.event)
    assert [len(p) for p in pieces] == [2, 2]
    assert samples(pieces[0].y) == [(2, 20), (3, 30), (4, 40)]
    assert samples(pieces[1].y) == [(7, 70), (8, 80), (9, 90)]
    assert all(p.get_path() == log.get_path() for p in pieces)
    assert isinstance(log.split(log.event, as_tuple=1), tuple)
    # between two stamps: the value held there, so that no variable is lost
    (piece,) = log.split(event=slow, prefix="flight")
    assert samples(piece.y)[:2] == [(2.5, 20), (3, 30)]
    assert samples(piece.y)[-1] == (8, 80)
    # what a script has changed goes into the pieces, and pieces live without the whole
    log.y.load()
    log.y[3] = -1.0
    (piece,) = log.split(slow)
    del log
    assert samples(piece.y)[1] == (3, -1)
    # a piece can be split again
    assert samples(piece.split(kvalo.TimeSeries([4, 5], [1, 0]))[0].y) == [(4, 40), (5, 50)]


def test_split_refuses_what_it_cannot_cut(log):
    with pytest.raises(TypeError, match="Argument must be a kvalo.TimeSeries object"):
        log.split(3)
    with pytest.raises(ValueError, match="No event has been detected"):
        log.split(series([0, 0]))
    with pytest.raises(ValueError, match=r"Number of detected events \(2\) exceeds the limit \(1\)"):
        log.split(log.event, limit=1)


def test_split_keeps_groups(flight):
    log = kvalo.Container(path=str(flight["bin"]))
    log.ATT.Roll.load()
    start = log.ATT.Roll[0][0]
    (piece,) = log.split(kvalo.TimeSeries([start, start + 1, start + 3], [0, 1, 0]))
    times = [x for x, _ in samples(piece.ATT.Roll)]
    assert start + 1 <= times[0] < start + 1.2
    assert start + 2.8 < times[-1] <= start + 3
    assert vars(piece.ATT).keys() == vars(log.ATT).keys()


def test_replace_xdata_gives_every_variable_the_new_clock(log):
    log.y.load()  # one that is loaded, and one (event) that is not
    array = log.y.xdata
    log.axpb(2, 0)
    clock = log.y / 1000.0
    assert log.replace_xdata(clock) is None
    expected = [t / 100 for t in range(10)]
    assert log.y.xdata.to_list() == array.to_list() == pytest.approx(expected)
    assert [x for x, _ in samples(log.event)] == pytest.approx(expected)
    log.axpb(1, 5)
    assert log.y[0][0] == 5
    log.y.xdata[0] = -1.0
    assert log.event[0][0] == 5
    clock.ydata[1] = 77.0
    assert log.y[1][0] == pytest.approx(5.01)


def test_replace_xdata_refuses_what_is_no_clock(log, capfd):
    text = "Values must be strictly increasing, i.e, any value at index 'k' is bigger than the one at 'k-1'"
    for values in ([0, 0], [1, 0], [0, float("nan")]):
        with pytest.raises(ValueError, match=f"^{re.escape(text)}$"):
            log.replace_xdata(series(values))
    for wrong in ((), (log.y, log.y)):
        with pytest.raises(ValueError, match=rf"'replace_xdata' takes 1 arguments \({len(wrong)} given\)"):
            log.replace_xdata(*wrong)
    with pytest.raises(TypeError):
        log.replace_xdata(log)
    log.replace_xdata(series([5, 6]))
    assert samples(log.y)[1] == (1, 10)
    told = "'y' keeps its time values: it has 10 samples, and the new time values are 2"
    assert told in capfd.readouterr().out


UNPACK = """variable,name,msb,lsb,base,gain,bias,type
status,low,3,0,0,,,
status,"two, signed",8,5,1,0.5,1,2c
status,y,1,0,0,1,0,USGN
status,bad,1,2,0,1,0,USGN
status,worse,x,2,0,1,0,USGN
nothing,like,1,0,0,1,0,USGN
"""


def test_unpacked_variables_appear_beside_their_source(tmp_path):
    (tmp_path / "unpack.csv").write_text(UNPACK)
    (tmp_path / "log.csv").write_text("time,status,y\n0,18,1\n1,129,2\n2,255,3\n")
    code = f"""
import kvalo
log = kvalo.Container(path={str(tmp_path / "log.csv")!r})
print(sorted(vars(log)))
log.low.load()
print(log.low.xdata.to_list(), log.low.ydata.to_list())
signed = log["two, signed"]
print((signed + 0).ydata.to_list(), signed.get_full_name())
print((log.y + 0).ydata.to_list())
log.low[0] = (9.0, 9.0)
log.status.load()
print(log.status[0])
"""
    done = run_script(code, KVALO_HOME=str(tmp_path), KVALO_LOG_LEVEL="2")
    assert done.stderr == ""
    assert done.stdout.splitlines() == [
        "['low', 'status', 'two__signed', 'y']",
        "[0.0, 1.0, 2.0] [2.0, 1.0, 15.0]",
        "[1.5, -3.0, 0.5] two, signed",
        "[1.0, 2.0, 3.0]",
        "(0.0, 18.0)",
    ]
    log = (tmp_path / "kvalo.log").read_text()
    for part in (
        "line 5: msb is below lsb",
        "line 6: 'x' is not a number for msb",
        "'y' is not unpacked from",
    ):
        assert part in log
