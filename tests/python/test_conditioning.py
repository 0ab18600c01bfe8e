"""Conditioning functions: what the script sees, and the results against NumPy, SciPy and plain Python."""

import math
import operator

import kvalo
import numpy as np
import pytest
from common import cases, opened, series, xs, ys
from hypothesis import given
from hypothesis import strategies as st
from scipy import signal

inf, nan = math.inf, math.nan

odd_numbers = st.one_of(st.sampled_from([0.0, -0.0, 1.0, 2.0, nan, inf, -inf]), st.floats(-3, 3))
numbers = st.one_of(st.integers(-1000, 1000).map(float), st.floats(-1e6, 1e6))


def same(got, expected) -> bool:
    return np.array_equal(np.array(got, float), np.array(expected, float), equal_nan=True)


CALCULUS = {
    "derivative": lambda t, y: np.append(0, np.diff(y) / np.diff(t)),
    "integral": lambda t, y: np.append(0, np.cumsum((y[:-1] + y[1:]) * np.diff(t) * 0.5)),
    "diff": lambda t, y: np.append(y[0], np.diff(y)),
    "accumulate": lambda t, y: np.cumsum(y),
    "estimate_sampling_period": lambda t, y: np.append(0, np.diff(t)),
    "estimate_sampling_frequency": lambda t, y: np.append(0, 1 / np.diff(t)),
}
CALLS = [
    *((name, (), {}, "") for name in CALCULUS),
    ("debounce", (), {"on": 2}, "on=2, off=0"),
    ("debounce", (0.5, 1), {}, "on=0.5, off=1"),
    ("hysteresis", (), {"upper": 1e7}, "lower=0, upper=1e+07"),
    ("clamp", (), {}, "lower=-inf, upper=inf"),
    ("drop", (), {"op1": "xx"}, "lim1=-inf, lim2=inf, op1='xx', op2='ge'"),
    ("in_range", (-1, 1.23456789), {}, "lower=-1, upper=1.23457, pers=0"),
    ("stale", (nan,), {}, "pers=nan"),
    ("lowpass", (), {"tau": 0.25}, "tau=0.25"),
    ("highpass", (3,), {}, "tau=3"),
    ("lerp", (), {"b": 2, "a": -0.0}, "a=-0, b=2"),
    ("unpack", (7,), {"type": "2c"}, "msb=7, lsb=0, base=0, gain=1, bias=0, type='2c'"),
    ("unpack", (), {"resolution": 2, "gain": 3}, "msb=0, lsb=0, base=0, gain=3, bias=0, type='USGN'"),
    ("unpack", (8, 1, 1), {"bias": 1, "offset": 5}, "msb=8, lsb=1, base=1, gain=1, bias=1, type='USGN'"),
    ("unpack", (2**64 - 1,), {}, f"msb={2**64 - 1}, lsb=0, base=0, gain=1, bias=0, type='USGN'"),
    ("unpack", (-1,), {}, f"msb={2**64 - 1}, lsb=0, base=0, gain=1, bias=0, type='USGN'"),
]


@cases("name, positional, named, options", *CALLS)
def test_result_is_a_series_of_its_own_that_says_how_it_was_made(name, positional, named, options):
    argument = series([3, 1, 2], [0, 1, 3])
    result = getattr(kvalo, name)(argument, *positional, **named)
    separator = ", " if options else ""
    assert result.get_script() == f"kvalo.{name}({argument.get_script()}{separator}{options})"
    assert xs(result) == [0, 1, 3]
    result.xdata[0] = result.ydata[0] = 99.0
    assert (xs(argument), ys(argument)) == ([0, 1, 3], [3, 1, 2])
    empty = getattr(kvalo, name)(series([]), *positional, **named)
    assert (xs(empty), ys(empty)) == ([], [])


def test_the_name_of_a_variable_of_a_file_is_its_own(tmp_path):
    assert kvalo.diff(opened(tmp_path / "f.csv").a).get_script() == "kvalo.diff(a)"


@cases("name", *sorted({call[0] for call in CALLS}))
def test_misuse(name):
    function = getattr(kvalo, name)
    required = {"stale": (1,), "lowpass": (1,), "highpass": (1,), "lerp": (1, 2)}.get(name, ())
    for wrong in (3.0, kvalo.Array([1.0]), None, [1.0]):
        with pytest.raises(TypeError, match=r"^Argument must be a kvalo.TimeSeries object$"):
            function(wrong, *required)
    with pytest.raises(Exception, match="kvalo.TimeSeries object is empty"):
        function(kvalo.TimeSeries(), *required)
    uneven = series([1, 2])
    uneven.xdata = kvalo.Array([1.0])
    with pytest.raises(ValueError, match="1 times for 2 values"):
        function(uneven, *required)
    if name in CALCULUS:
        with pytest.raises(ValueError, match=r"^Function takes at least one argument$"):
            function()
        with pytest.raises(TypeError):
            function(x=series([1]))
        return
    for arguments in ((), (series([1]), *["text"] * max(1, len(required)))):
        with pytest.raises(TypeError):
            function(*arguments)
    for named in ({"no_such_option": 1}, {"": series([1])}):
        with pytest.raises(TypeError):
            function(series([1]), *required, **named)
    if required:
        with pytest.raises(TypeError):
            function(series([1]), *required[1:])


@cases(
    "arguments, error, text",
    ((3, 4), ValueError, "LSB must be smaller than MSB"),
    ((3, 4, 5), ValueError, "LSB must be smaller than MSB"),
    ((4, 3, 4), ValueError, "Inconsistent BASE value"),
    ((4.0,), TypeError, "int"),
    ((4, 3, 0, 1.0, 1.0, 0.0, 0.0, None), TypeError, "str"),
)
def test_unpack_refuses(arguments, error, text):
    with pytest.raises(error, match=text):
        kvalo.unpack(series([1]), *arguments)


@cases(
    "value, options, expected",
    (0x85, {"msb": 7, "type": "sgn"}, -5),
    (0x85, {"msb": 7, "type": "SGN", "bias": 1, "gain": 2}, -11),
    (0xF, {"msb": 3, "type": "BCD"}, 15),
    (0xA5, {"msb": 8, "lsb": 1, "base": 1}, 0xA5),
    (0xA5, {"msb": 7, "lsb": 4, "type": "whatever"}, 0xA),
    (-1, {"msb": 3}, 15),
    (3, {"msb": 0}, 1),
    (1e15, {"msb": 63, "bias": 7}, 7),
    (1e15, {"msb": 63, "bias": 7, "type": "BCD"}, 7),
    (2.0**63, {"msb": 63, "lsb": 60, "type": "2C"}, -8),
)
def test_unpack(value, options, expected):
    assert ys(kvalo.unpack(series([value] * 3), **options)) == [expected] * 3


@cases(
    "result, expected",
    (lambda: kvalo.debounce(series([1, 1, 0, nan, 0])), [0, 1, 0, 1, 0]),
    (lambda: kvalo.debounce(series([0, 1, 1, 1, 0, 0, 0, 1]), 2, 2), [0, 0, 0, 1, 1, 1, 0, 0]),
    (lambda: kvalo.hysteresis(series([3]), 2, 1), [0]),
    (lambda: kvalo.hysteresis(series([0, 1, 0, nan, -1, 0])), [0, 1, 1, 1, 0, 0]),
    (lambda: kvalo.clamp(series([-2, nan, 9]), -1, 1), [-1, nan, 1]),
    (lambda: kvalo.clamp(series([5, 2, 0]), 3, 1), [1, 1, 3]),
    (lambda: kvalo.drop(series([1, inf, nan, -inf])), [1, nan]),
    (lambda: kvalo.drop(series([1, 2, 3]), 2, op1="xx"), [1, 3]),
    (lambda: kvalo.drop(series([1, nan, 3]), 1, 7, "NE", "eq"), [1]),
    (lambda: kvalo.in_range(series([0, 0, 5, 0, 0, 0]), -1, 1, 2), [0, 0, 0, 0, 0, 1]),
    (lambda: kvalo.in_range(series([0, 9], [100, 101]), -1, 1, 5), [1, 0]),
    (lambda: kvalo.stale(series([nan, 1, nan], [-1, 0, 1]), 0), [0, 1, 1]),
    (lambda: kvalo.stale(series([1, 1, 1, 2, 2, nan], range(100, 106)), 2), [1, 1, 1, 0, 1, 0]),
    (lambda: kvalo.lerp(series([0, 1, 0.5, inf, nan]), 2, 4), [2, 4, 3, inf, nan]),
    (lambda: kvalo.lowpass(series([4, 1, -2]), 0), [4, 1, -2]),
    (lambda: kvalo.highpass(series([4, 1, -2]), 0), [4, 0, 0]),
    (lambda: kvalo.lowpass(series([4]), 1), [4]),
    (lambda: kvalo.derivative(series([1, 3, 3], [0, 0, 0])), [0, inf, nan]),
    (lambda: kvalo.estimate_sampling_frequency(series([1, 3], [0, 0])), [0, inf]),
)
def test_worked_results(result, expected):
    assert same(ys(result()), expected)


@given(st.lists(st.tuples(numbers, st.floats(0.01, 1)), min_size=1, max_size=60))
def test_calculus_and_filters_agree_with_numpy_and_scipy(samples):
    y, steps = np.array(samples).T
    t = np.cumsum(steps)
    s = series(y, t)
    for name, expected in CALCULUS.items():
        assert same(ys(getattr(kvalo, name)(s)), expected(t, y)), name
    whole = series(np.round(y), t)
    assert ys(kvalo.accumulate(kvalo.diff(whole))) == ys(whole)
    if len(t) == 1:
        return
    period = sorted(np.diff(t)[:9])[min(len(t) - 1, 9) // 2 + (len(t) >= 10)]
    tau = 0.3
    low, high = period / (period + tau), tau / (period + tau)
    for ours, b, a in (
        (kvalo.lowpass(s, tau), [low], [1, low - 1]),
        (kvalo.highpass(s, tau), [high, -high], [1, -high]),
    ):
        theirs = signal.lfilter(b, a, y, zi=[(1 - b[0]) * y[0]])[0]
        np.testing.assert_allclose(ys(ours), theirs, rtol=1e-9, atol=1e-6)


@given(st.lists(odd_numbers, max_size=40), st.sampled_from(["eq", "ne", "lt", "le", "gt", "ge"]), odd_numbers)
def test_drop_keeps_samples_with_their_stamps(values, name, limit):
    compare = getattr(operator, name)
    kept = [(i, v) for i, v in enumerate(values) if not (compare(v, limit) or v == 2)]
    result = kvalo.drop(series(values), limit, 2, name, "eq")
    assert same(xs(result), [i for i, _ in kept])
    assert same(ys(result), [v for _, v in kept])


@given(st.lists(st.tuples(odd_numbers, odd_numbers), max_size=40), odd_numbers)
def test_stale_is_the_walk_back_on_any_stamps(samples, pers):
    t, y = [s[0] for s in samples], [s[1] for s in samples]
    start = next((i for i, stamp in enumerate(t) if not pers > stamp), len(t))
    expected = [0.0] * start
    for i in range(start, len(t)):
        first = i
        while pers > 0 and first > 0 and pers > t[i] - t[first - 1]:
            first -= 1
        expected.append(float(not pers > 0 or all(y[j] == y[i] for j in range(first, i + 1))))
    assert ys(kvalo.stale(series(y, t), pers)) == expected
