"""lut1d and lut2d: interpolation at and beyond the edges, lists, names, pairing of two series."""

import math

import kvalo
import numpy as np
import pytest
from common import cases, series, ys
from hypothesis import given
from hypothesis import strategies as st

INF, NAN = math.inf, math.nan


def lut1d(values, *args, **keywords):
    return ys(kvalo.lut1d(series(values), *args, **keywords))


# Table, inputs, results of the clip form and of the extend form.
@cases(
    "bp, val, x, clipped, extended",
    ([0, 10], [0, 100], [5, 20, -1, 0, 10], [50, 100, 0, 0, 100], [50, 200, -10, 0, 100]),
    ([0, 1, 3], [5, 7, 1], [-1, 0.5, 2, 4], [5, 6, 4, 1], [3, 6, 4, -2]),
    ([0, 1, 3], [5, 7, 1], [-INF, INF, NAN], [5, 1, NAN], [-INF, -INF, NAN]),
    ([0, 1], [4, 4], [-INF, 0.5, INF], [4, 4, 4], [4, 4, 4]),
    ([2], [9], [1, 2, 3, NAN], [9, 9, 9, NAN], [9, 9, 9, NAN]),
    ([0, 1, 1, 2], [0, 1, 5, 6], [0.5, 1, 1.5], [0.5, 5, 5.5], [0.5, 5, 5.5]),
    ([1, 1], [3, 4], [0, 1, 2], [3, 4, 4], [3, 4, 4]),
    ([0, 1, 1], [0, 1, 5], [0.5, 1, 2], [0.5, 5, 5], [0.5, 5, 5]),
    ([0, 1, 2], [1, INF, 3], [0, 1, 2, 3], [1, INF, 3, 3], [1, INF, 3, NAN]),
    ([0, 1.5, True], [0, "text", None], [-1, 9], [0, 0], [0, 0]),
)
def test_one_dimension(bp, val, x, clipped, extended):
    np.testing.assert_array_equal(lut1d(x, bp, val), clipped)
    np.testing.assert_array_equal(lut1d(x, bp, val, False), extended)


# Thousandths: where the slopes leave the range of a double, numpy loses its way.
finite = st.integers(-(10**9), 10**9).map(lambda v: v / 1000)


@given(
    st.lists(st.tuples(finite, finite), min_size=2, unique_by=lambda p: p[0]), st.lists(finite, min_size=1)
)
def test_one_dimension_against_numpy(table, x):
    table.sort()
    bp, val = zip(*table, strict=True)
    found = lut1d(x, list(bp), list(val))
    scale = max(map(abs, val)) + 1
    np.testing.assert_allclose(found, np.interp(x, bp, val), rtol=1e-9, atol=1e-9 * scale)


@given(st.lists(st.floats(), min_size=1, max_size=6), st.lists(st.floats(), min_size=1), st.booleans())
def test_breakpoints_in_no_order_do_no_harm(bp, x, clip):
    val = list(range(len(bp)))
    assert len(lut1d(x, bp, val, clip)) == len(x)
    assert len(kvalo.lut2d(series(x), series([1]), bp, [1], [[v] for v in val], clip)) >= len(x)


def test_long_input_is_split_without_a_seam():
    x = np.random.default_rng(3).uniform(-2, 12, 300_000)
    bp, val = [0, 1, 4, 10], [3, -2, 8, 8.5]
    s = series(x)
    np.testing.assert_allclose(kvalo.lut1d(s, bp, val).ydata, np.interp(x, bp, val), rtol=0, atol=1e-12)
    assert list(kvalo.lut1d(s, bp, val).xdata) == list(s.xdata)
    other = series(x[:100_000], np.arange(100_000) * 3 + 0.5)
    found = kvalo.lut2d(s, other, bp, [0, 1], [[v, v + 1] for v in val])
    t = np.array(found.xdata)
    assert np.array_equal(t, np.union1d(s.xdata, other.xdata))
    x1 = x[np.minimum(np.searchsorted(s.xdata, t), len(x) - 1)]
    x2 = x[np.minimum(np.searchsorted(other.xdata, t), 99_999)]
    np.testing.assert_allclose(found.ydata, np.interp(x1, bp, val) + np.clip(x2, 0, 1), rtol=0, atol=1e-12)


@cases(
    "x1, x2, clipped, extended",
    (0, 0, 1, 1),
    (10, 4, 18, 18),
    (5, 3, 9.25, 9.25),
    (20, 1, 10, 18),
    (-10, -2, 1, -9),
    (INF, 0, 9, INF),
    (NAN, 0, NAN, NAN),
    (0, NAN, NAN, NAN),
)
def test_two_dimensions(x1, x2, clipped, extended):
    # Bilinear in each cell: rows at 0 and 10, columns at 0, 2 and 4.
    table = ([0, 10], [0, 2, 4], [[1, 3, 5], [9, 11, 18]])
    for clip, expected in ((True, clipped), (False, extended)):
        np.testing.assert_equal(ys(kvalo.lut2d(series([x1]), series([x2]), *table, clip)), [expected])


def test_the_next_sample_counts_on_the_merged_time_base():
    one, other = series([10, 20, 30]), series([1, 2], [0.5, 1.5])
    result = kvalo.lut2d(in1=one, in2=other, bp1=[0, 100], bp2=[0, 10], val=[[0, 10], [100, 110]])
    assert list(result.xdata) == [0, 0.5, 1, 1.5, 2]
    assert list(result.ydata) == [11, 21, 22, 32, 32]
    name = f"in1={one.get_script()}, in2={other.get_script()}"
    options = "bp1=[0,100], bp2=[0,10], val=[[0,10],[100,110]], clip=True"
    assert result.get_script() == f"kvalo.lut2d({name}, {options})"


def test_the_name_restates_the_call():
    script = kvalo.lut1d(S, bp=[0, 1.5, 2e9], val=[1, -0.5, 1 / 3], clip=False).get_script()
    options = "bp=[0,1.5,2e+09], val=[1,-0.5,0.333333], clip=False"
    assert script == f"kvalo.lut1d({S.get_script()}, {options})"


S = series([0, 1])
SAME = "^Breakpoints and output values must have the same length$"
LISTS = "^Breakpoints and output values must be lists$"


@cases(
    "call, error, text",
    (lambda: kvalo.lut1d(S, (0, 1), [0, 1]), TypeError, LISTS),
    (lambda: kvalo.lut1d(3, [0, 1], "text"), TypeError, LISTS),
    (lambda: kvalo.lut1d(3, [0, 1], [0]), ValueError, SAME),
    (lambda: kvalo.lut1d(3, [0], [0]), TypeError, "^Argument must be a kvalo.TimeSeries object$"),
    (lambda: kvalo.lut1d(S, [], []), ValueError, "at least one breakpoint"),
    (lambda: kvalo.lut1d(S, [2**63], [0]), OverflowError, "64 bits"),
    (lambda: kvalo.lut2d(S, S, [0], [0], ((0,),)), TypeError, LISTS),
    (lambda: kvalo.lut2d(S, S, [0, 1], [0], [[0]]), ValueError, r"^Breakpoints 1 \(rows\) and output"),
    (lambda: kvalo.lut2d(S, S, [0], [0], [0]), TypeError, "^Output values must be a list of lists$"),
    (lambda: kvalo.lut2d(S, S, [0], [0, 1], [[0]]), ValueError, r"^Breakpoints 2 \(columns\) and output"),
    (lambda: kvalo.lut2d(S, S, [], [], []), ValueError, "at least one breakpoint"),
    (lambda: kvalo.lut2d(S, S, [0], [], [[]]), ValueError, "at least one breakpoint"),
    (lambda: kvalo.lut2d(S, 3, [0], [0], [[0]]), TypeError, "^Argument must be a kvalo.TimeSeries"),
    (lambda: kvalo.lut2d(S, series([]), [0], [0], [[0]]), ValueError, "must have samples"),
)
def test_refusals(call, error, text):
    with pytest.raises(error, match=text):
        call()
