"""kvalo.TimeSeries: the forms of construction, elements, names, sampling, and the frame of functions."""

import gc

import kvalo
import pytest
from common import cases, opened, samples, series
from conftest import run_script


@pytest.fixture
def recording(tmp_path):
    """A container of a small file: mode is text, speed and height are numbers."""
    rows = [f"{i / 10},{i * i},{'AB'[i % 2]},{-i}\n" for i in range(20)]
    return opened(tmp_path / "small.csv", "time,speed,mode,height\n" + "".join(rows))


def test_a_new_series_is_not_loaded():
    s = kvalo.TimeSeries()
    assert repr(s) == "kvalo.TimeSeries hasn't been loaded yet"
    assert (len(s), s.flags, s.xdata, s.get_main_name()) == (0, 0x81, None, "")
    assert len(kvalo.TimeSeries(3.5)) == len(kvalo.TimeSeries("a", 0.0, 1.0)) == 0  # accepted without effect
    with pytest.raises(Exception, match="Data not loaded"):
        s[0]
    with pytest.raises(AttributeError):
        s.id64 = 1


def test_series_from_lists_and_tuples():
    for make in (list, tuple):
        s = kvalo.TimeSeries(make([0, 1]), make([5, 6]))
        assert [s[0], s[-1], len(s)] == [(0.0, 5.0), (1.0, 6.0), 2]
        assert repr(s) == "2 elements, 0kB"
    assert repr(series([])) == "kvalo.TimeSeries is empty"


@cases(
    "arguments, error, text",
    (([1, 2], [3]), ValueError, "Both lists must have the same size"),
    (((1,), (3, 4)), ValueError, "Both tuples must have the same size"),
    (([1, 2], (3, 4)), TypeError, "Constructor has invalid argument type"),
    ((1, 2), TypeError, "Constructor has invalid argument type"),
    (([1], ["a"]), TypeError, None),
    ((12345, 0.0, 1.0), ValueError, "Invalid id"),
    ((-1, 0.0, 1.0), ValueError, "Invalid id"),
    ((2**64, 0.0, 1.0), ValueError, "Invalid id"),
    ((1, 2, 3, 4), ValueError, "Constructor does not take more than three arguments"),
)
def test_refused_construction(arguments, error, text):
    with pytest.raises(error, match=text):
        kvalo.TimeSeries(*arguments)


def test_an_unknown_id_still_marks_the_object():
    s = kvalo.TimeSeries.__new__(kvalo.TimeSeries)
    with pytest.raises(ValueError, match="Invalid id"):
        s.__init__(12345, 0.0, 1.0)
    assert s.flags & 0x100


def test_copies_share_samples():
    a = series([1, 2])
    b = kvalo.TimeSeries(a)
    b[0] = 5.0
    assert a[0] == (0.0, 5.0)
    assert b.id64 != a.id64
    del a
    assert b[0] == (0.0, 5.0)


def test_elements_are_assigned_in_place():
    s = series([0, 0, 0])
    s[0] = (1.5, 2)
    s[-1] = 7
    assert [s[0], s[2]] == [(1.5, 2.0), (2.0, 7.0)]
    for value in ("a", (1, 2, 3), (1, "a"), None):
        with pytest.raises(TypeError, match="Unsupported type"):
            s[0] = value
    for index in (3, -4):
        with pytest.raises(IndexError, match="Index out of bounds"):
            s[index]
    with pytest.raises(TypeError, match="Key must be a string"):
        s[1.5]
    with pytest.raises(KeyError, match="'x' is not a valid key for this TimeSeries"):
        s["x"]
    with pytest.raises(NotImplementedError, match="This operation is not allowed"):
        s["x"] = 1


@cases("axis", None, 3, "abc", kvalo.Array(), kvalo.Array([1]))
def test_a_replaced_axis_never_leads_out_of_bounds(axis):
    s = series([3, 4, 5])
    s.xdata = axis
    for use in (lambda: s[2], lambda: s.__setitem__(2, 1), s.get_ts, lambda: kvalo.diff(s)):
        with pytest.raises((Exception, IndexError)):
            use()
    s.ydata = axis
    repr(s)
    assert len(s) in (0, 1)


@cases(
    "x, period",
    ([0, 0.5], 0.5),
    ([0, 0, 0.25], 0.25),
    (list(range(9)), 1.0),
    ([0, 5, 6, 7, 8, 9, 10, 11, 12, 13], 1.0),  # one gap among nine intervals
    ([0, 1, 2, 3, 4, 6, 8, 10, 12, 14], 2.0),  # the sixth smallest of 1 1 1 1 2 2 2 2 2
)
def test_sampling_period(x, period):
    s = series(x, x)
    assert s.get_ts() == period
    assert s.get_fs() == 1 / period


def test_no_period_without_two_samples():
    for s in (kvalo.TimeSeries(), series([]), series([2])):
        with pytest.raises(Exception, match="kvalo.TimeSeries object"):
            s.get_ts()


def test_names_tags_and_loading(recording):
    speed, mode = recording.speed, recording.mode
    assert (speed.get_main_name(), speed.get_full_name()) == ("speed", "speed")
    with pytest.raises(Exception, match="Data not loaded"):
        speed[0]
    speed.load()
    assert speed.flags & 0x200
    assert speed[3] == (0.3, 9.0)
    mode.load()
    assert [mode.tag(mode[i][1]) for i in (0, 1, 2)] == ["A", "B", "A"]
    assert mode.tag(1e9) == mode.tag(float("nan")) == "n/a"
    with pytest.raises(ValueError, match=r"Function 'tag' takes 1 arguments \(0 given\)"):
        mode.tag()
    with pytest.raises(ValueError, match="Argument must be a numeric value"):
        mode.tag("A")
    with pytest.raises(Exception, match="does not have a name"):
        series([2]).tag(1)


def test_a_series_that_is_not_loadable_says_so(recording):
    recording.speed.flags &= ~0x80
    with pytest.raises(Exception, match="kvalo.TimeSeries object is not loadable"):
        recording.speed.load()


def test_series_by_id_show_the_same_record(recording):
    by_id = kvalo.TimeSeries(recording.speed.id64, 0.0, 1.0)
    by_id.load()
    recording.speed.load()
    by_id[0] = 42.0
    assert recording.speed[0] == (0.0, 42.0)
    del by_id
    assert kvalo.find("speed") is recording.speed


def test_series_outlive_their_container(recording):
    speed = recording.speed
    del recording
    gc.collect()
    assert len(samples(speed)[0]) == 20


def test_detached_series_are_found_and_gone_with_their_object():
    s = kvalo.TimeSeries("a name of its own")
    assert kvalo.find("a name of its own") is s
    shown = kvalo.TimeSeries(s.id64, 0.0, 1.0)
    s.xdata, s.ydata = kvalo.Array([1, 2]), kvalo.Array([3, 4])
    shown.load()
    assert shown[1] == (2.0, 4.0)
    del s, shown
    with pytest.raises(Exception, match="No variable matched the regular expression a name of its own"):
        kvalo.find("a name of its own")


def test_scripts_count_up_from_the_first_series_of_a_process():
    code = "import kvalo; print(*(s.get_script() for s in [kvalo.TimeSeries() for _ in range(3)]))"
    assert run_script(code).stdout.split() == ["ts00001", "ts00002", "ts00003"]


def test_cycles_are_collected():
    s = series([1])
    s.itself = s
    number = s.id64
    del s
    gc.collect()
    with pytest.raises(ValueError, match="Invalid id"):
        kvalo.TimeSeries(number, 0.0, 1.0)
