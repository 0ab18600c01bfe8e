"""Questions to a kvalo.TimeSeries: statistics, times, search, pattern, cutting, sorting, gain, inspect."""

import functools
import math
import operator
import re

import kvalo
import numpy as np
import pytest
from common import cases, opened, samples, series
from hypothesis import given
from hypothesis import strategies as st

NAN, INF = math.nan, math.inf
values = st.lists(st.floats(width=16) | st.sampled_from([0.0, -0.0, 1.0, 2.0, NAN, INF]), max_size=60)


def same(a, b):
    """Bit for bit, any NaN like any other."""
    numbers = ~np.isnan(a)
    return np.array_equal(a, b, equal_nan=True) and not np.any((np.signbit(a) != np.signbit(b)) & numbers)


@pytest.fixture
def file_series(tmp_path):
    return opened(tmp_path / "flight.csv", "t,alt\n0,3\n1,1\n2,2\n").alt


# ---- statistics ----


@given(values)
def test_statistics_against_plain_loops(y):
    x = np.cumsum(np.arange(len(y)) % 3 + 0.1)
    ts = series(y, x)
    mean = 0.0
    for i in range(1, len(y)):
        mean += float(np.float64((x[i] - x[i - 1]) * y[i - 1]) / (x[-1] - x[0]))
    assert same(ts.avg(), mean)
    assert same(ts.sum(), functools.reduce(operator.add, y, 0.0))
    numbers = [v for v in y if not math.isnan(v)]
    if numbers:
        assert same(ts.min(), min(numbers))  # the first of equal ones
        assert same(ts.max(), max(reversed(numbers)))  # the last
    elif y:
        assert math.isnan(ts.min())
        assert math.isnan(ts.max())


def test_long_scans_give_what_short_ones_give():
    rng = np.random.default_rng(3)
    y = rng.normal(0, 1, 700_001)
    y[::1000] = NAN
    y[-1] = INF
    ts = series(y.tolist())
    assert (ts.min(), ts.max()) == (np.nanmin(y), INF)
    for op, v, hits in [("gt", 4.5, y > 4.5), ("lt", -4.5, y < -4.5), ("eq", y[600_001], y == y[600_001])]:
        assert ts.index(v, op) == np.flatnonzero(hits)[0]
    assert ts.index(INF) == len(y) - 1


def test_empty_and_short_data():
    none, empty, one = kvalo.TimeSeries(), series([]), series([7.0])
    assert (empty.avg(), empty.sum(), one.avg(), one.min()) == (0.0, 0.0, 0.0, 7.0)
    for method in (none.avg, none.sum, none.min, none.max, empty.min, empty.max):
        with pytest.raises(ValueError, match="^No data$"):
            method()
    with pytest.raises(ValueError, match="There are 1 times for 3 values"):
        replaced(xdata=[0]).avg()
    assert replaced(xdata=[0, 1, 3, 7]).avg() == 1 / 7 + 4 / 7


def replaced(**axes):
    ts = series([1, 2, 3])
    for name, content in axes.items():
        setattr(ts, name, kvalo.Array(content))
    return ts


# ---- total times ----


@given(values, st.sampled_from([0.0, 1.0, NAN, INF]))
def test_times_against_plain_loops(y, v):
    x = np.cumsum(np.arange(len(y)) % 3 * 0.3).tolist()
    ts = series(y, x)

    def total(holds):
        steps = (x[i] - x[i - 1] for i in range(1, len(y)) if holds(i))
        return functools.reduce(operator.add, steps, 0.0)

    assert ts.time_eq(v) == total(lambda i: y[i - 1] == v)
    assert ts.time_ne(v) == total(lambda i: y[i - 1] != v)
    assert ts.time_gt(v) == total(lambda i: y[i - 1] > v)
    assert ts.time_lt(v) == total(lambda i: y[i - 1] < v)
    assert ts.time_bt(-v, v) == total(lambda i: -v < y[i] < v)


def test_times_answer_softly():
    ts = series([10, 20, 30], [0, 1, 3])
    for answer in (ts.time_eq(1, 2), ts.time_ne(), ts.time_bt(1), ts.time_bt(1, 2, 3)):
        assert answer is None
    assert replaced(xdata=[1, 2]).time_gt(0) is None
    assert kvalo.TimeSeries().time_gt(0) == series([5]).time_gt(0) == 0.0
    with pytest.raises(TypeError, match="numeric"):
        ts.time_gt("1")


def test_times_read_what_is_there(file_series, capfd):
    assert file_series.time_gt(0) == 0.0
    assert "'alt' has no samples yet: call load() first" in capfd.readouterr().out
    file_series.load()
    assert file_series.time_gt(0) == 2.0
    assert capfd.readouterr().out == ""


# ---- search and pattern ----


@given(values, st.sampled_from([0.0, 1.0, NAN, INF]))
def test_index_against_a_plain_loop(y, v):
    for op in ("lt", "LE", "Eq", "ne", "gt", "GE", "xx"):
        compare = getattr(operator, op.lower().replace("xx", "eq"))
        hits = [i for i, a in enumerate(y) if compare(a, v)]
        if hits:
            assert series(y).index(v, op=op) == hits[0]
        else:
            with pytest.raises(ValueError, match="^Could not find sample that match the criteria$"):
                series(y).index(v, op)


@cases(
    "y, limits, code",
    ([0, 1, 0, 1], (0, 0), 2),
    ([5, 5, 5], (0, 0), 4),
    ([5, 5, 9], (7, 7), 4),  # the last one is not looked at
    ([5, 5, 9], (-1, 9), 1),
    ([0, 9, 9, 9, 0], (0, 3), 4),  # after the first limit, up to and with the second
    ([0, 9, 10, 9, 0], (0.5, 3.5), 2),
    ([1, 2], (5, 9), 1),
    ([1, 1, 1], (2, 0), 1),
    ([1, 1, 1], (NAN, NAN), 1),
    ([3], (0, 0), 1),
    ([], (0, 0), 1),
    ([NAN, 2, 3, NAN], (0, 0), 2),
    ([NAN, NAN, NAN], (0, 0), 1),
    ([1e60, 1e60, 1e60], (0, 0), 1),  # beyond what the detector starts from
)
def test_pattern(y, limits, code):
    ts = series(y)
    ts.flags |= 0x1_0000_0000_0047
    assert ts.pattern(*limits) == 0xC0 | code
    assert ts.flags == 0x1_0000_0000_00C0 | code


def test_pattern_fails_softly(capfd):
    ts = series([1, 1, 1])
    assert ts.pattern(1) == 1
    assert capfd.readouterr().out == "Invalid argument count\n"
    assert replaced(xdata=[1]).pattern(0, 0) == 1
    assert ts.flags == 0x81
    with pytest.raises(Exception, match="^kvalo.TimeSeries object is empty$") as raised:
        kvalo.TimeSeries().pattern(0, 0)
    assert raised.type is Exception


# ---- cutting and sorting ----


@given(st.lists(st.integers(0, 9), min_size=1, max_size=30), st.floats(-1, 11), st.floats(-1, 11))
def test_slice_against_a_plain_search(x, tini, tend):
    x = sorted(x)
    y = [10.0 * i for i in range(len(x))]
    first = next((i for i, t in enumerate(x) if t >= tini), len(x) - 1)
    last = next((i for i, t in enumerate(x) if t > tend), len(x) - 1)
    ts = series(y, x)
    if first > last:
        with pytest.raises(ValueError, match="^Invalid time limits$"):
            ts.slice(tini, tend)
    else:
        part = ts.slice(tini=tini, tend=tend)
        assert samples(part) == (x[first : last + 1], y[first : last + 1])


def test_slice_is_a_copy_with_a_name_of_its_own():
    ts = series([1, 2, 3, 4])
    part = ts.slice(1.0, 2.0)
    part[0] = (9.0, 9.0)
    assert samples(ts) == ([0, 1, 2, 3], [1, 2, 3, 4])
    assert re.fullmatch(r"ts\d{5,}", part.get_script())
    with pytest.raises(ValueError, match="No data"):
        series([]).slice(0, 1)
    with pytest.raises(ValueError, match="times for"):
        replaced(xdata=[1, 2]).slice(0, 1)


@given(st.lists(st.floats(width=16) | st.sampled_from([0.0, -0.0, NAN]), max_size=80))
def test_sort_is_stable_with_nan_last(x):
    ts = series(range(len(x)), x)
    ts.sort()
    order = sorted(range(len(x)), key=lambda i: (math.isnan(x[i]), 0 if math.isnan(x[i]) else x[i]))
    assert ts.ydata.to_list() == order
    assert same(ts.xdata.to_list(), [x[i] for i in order])


def test_long_sort_against_numpy():
    x = np.random.default_rng(4).integers(0, 5000, 200_000).astype(float)
    ts = series(range(len(x)), x.tolist())
    ts.sort()
    assert np.array_equal(np.asarray(ts.ydata), np.argsort(x, kind="stable"))


def test_sorting_changes_everybody_who_shows_the_series(file_series):
    file_series.load()
    other = kvalo.TimeSeries(file_series.id64, 0.0, 9.0)
    other.load()
    file_series.axpb(-1, 0)
    old = np.asarray(file_series.ydata)
    file_series.sort()
    assert samples(file_series) == samples(other) == ([-2, -1, 0], [2, 1, 3])
    assert old.tolist() == [3, 1, 2]
    file_series.aypb(10, 0)
    assert other.ydata.to_list() == [20, 10, 30]


def test_sorting_leaves_lent_time_stamps_alone():
    x = list(range(10_000))
    ts = series(x, x[::-1])
    derived = kvalo.diff(ts)
    ts.sort()
    assert (ts[0], derived.xdata.to_list()) == ((0.0, 9999.0), x[::-1])


# ---- gain and offset ----


def test_gain_and_offset_compose_in_place():
    ts = series([1, 2], [5, 6])
    shared = kvalo.Array(ts.ydata)
    for _ in range(2):
        assert ts.aypb(2, 1) is None
    ts.axpb(0.5, True)
    assert (samples(ts), shared.to_list()) == (([3.5, 4.0], [7.0, 11.0]), [7.0, 11.0])
    kvalo.TimeSeries().axpb(1, 2)  # nothing there, nothing to do


def test_gain_and_offset_of_a_file(file_series):
    file_series.aypb(2, 1)
    file_series.load()
    assert file_series.ydata.to_list() == [7, 3, 5]
    file_series.aypb(2, 1)
    assert file_series.ydata.to_list() == [15, 7, 11]


def test_gain_for_the_times_of_a_result_leaves_its_operand_alone():
    ts = series([0.0] * 10)
    derived = kvalo.diff(ts)
    derived.axpb(2, 1)
    assert (ts[9][0], derived[9][0]) == (9.0, 19.0)


@cases("name", "axpb", "aypb")
def test_refused_gains(name):
    method = getattr(series([1]), name)
    with pytest.raises(ValueError, match=rf"^Function '{name}' takes 2 arguments \(1 given\)$"):
        method(1)
    with pytest.raises(TypeError, match="numeric"):
        method(1, "2")


# ---- inspect ----


def test_inspect_tells_what_is_there(file_series, capfd):
    series([NAN, -INF, 2.5, INF], [0, 1, 1, NAN]).inspect()
    assert capfd.readouterr().out.splitlines()[2:] == [
        "0 out of 4 x-axis values are inf",
        "1 out of 4 x-axis values are NaN",
        "Minimum value in x-axis is 0",
        "Maximum value in x-axis is 1",
        "2 out of 4 y-axis values are inf",
        "1 out of 4 y-axis values are NaN",
        "Minimum value in y-axis is -inf",
        "Maximum value in y-axis is inf",
    ]
    file_series.inspect()
    assert capfd.readouterr().out.splitlines() == [
        "TimeSeries was created from file",
        "Full name is alt",
        "Main name is alt",
        "No data for the x-axis",
        "No data for the y-axis",
        "'alt' has no samples yet: call load() first",
    ]
    series([]).inspect()
    assert capfd.readouterr().out.splitlines()[1:3] == [
        "X-axis values are strictly increasing",
        "0 out of 0 x-axis values are inf",
    ]


# ---- what holds for all ----


def test_a_file_is_loaded_when_samples_are_needed(file_series):
    calls = {"index": (1,), "pattern": (0, 1), "slice": (0, 1)}
    for question in ("avg", "min", "max", "sum", "sort", *calls):
        file_series.xdata = file_series.ydata = None
        getattr(file_series, question)(*calls.get(question, ()))
        assert len(file_series) == 3
    file_series.xdata = file_series.ydata = None
    file_series.flags = 0
    with pytest.raises(Exception, match="not loadable"):
        file_series.max()
