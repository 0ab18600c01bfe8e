"""Operators, comparisons and elementary functions of TimeSeries and Array."""

import math
import operator

import kvalo
import numpy as np
import pytest
from common import cases, series, xs, ys
from hypothesis import given
from hypothesis import strategies as st

NAMES = {"+": "add", "-": "sub", "*": "mul", "/": "truediv", "%": "mod", "math.pow": "pow"}
NAMES |= {"and": "and", "or": "or", "^": "xor"}
COMPARISONS = dict(zip(("<", "<=", "==", "!=", ">", ">="), ("lt", "le", "eq", "ne", "gt", "ge"), strict=True))
BINARY = {symbol: getattr(operator, f"__{name}__") for symbol, name in (NAMES | COMPARISONS).items()}
IN_PLACE = {symbol: getattr(operator, f"__i{name}__") for symbol, name in NAMES.items()}
SPECIAL = [0.0, -0.0, 1.0, -1.0, 2.5, -7.0, 3.0, 1e300, math.inf, -math.inf, math.nan]


ELEMENTS = {
    "%": lambda a, b: np.fmod(np.fmod(a, b) + b, b),
    "and": lambda a, b: a != 0 and b != 0,
    "or": lambda a, b: a != 0 or b != 0,
    "^": lambda a, b: (a != 0) != (b != 0),
}


def element(symbol, a, b):
    """The same function in numpy's arithmetic, which is the processor's and the C library's."""
    with np.errstate(all="ignore"):
        return float(ELEMENTS.get(symbol, BINARY[symbol])(np.float64(a), np.float64(b)))


def held(x, y, t):
    return y[max(np.searchsorted(x, t, side="right") - 1, 0)]


def assert_same(actual, expected):
    np.testing.assert_array_equal(np.array(actual), np.array(expected, dtype=float))


@cases("symbol", *BINARY)
def test_every_operator_on_every_kind_of_operand(symbol):
    apply = BINARY[symbol]
    pairs = [(p, q) for p in SPECIAL for q in SPECIAL]
    left, right = map(list, zip(*pairs, strict=True))
    expected = [element(symbol, p, q) for p, q in pairs]
    with_number = [element(symbol, p, 2.5) for p in left]
    reverse = [element(symbol, 2.5, p) for p in left]

    assert_same(apply(kvalo.Array(left), kvalo.Array(right)).to_list(), expected)
    assert_same(apply(kvalo.Array(left), 2.5).to_list(), with_number)
    assert_same(apply(2.5, kvalo.Array(left)).to_list(), reverse)

    a, b = series(left), series(right)
    name_a, name_b = a.get_script(), b.get_script()
    for result, values, script in (
        (apply(a, b), expected, f"({name_a}) {symbol} ({name_b})"),
        (apply(a, 2.5), with_number, f"({name_a}) {symbol} 2.500000"),
        (apply(a, 3), [element(symbol, p, 3) for p in left], f"({name_a}) {symbol} 3.000000"),
    ):
        assert_same(ys(result), values)
        assert xs(result) == list(range(len(pairs)))
        assert result.get_script() == script
        assert result.flags == 0x81
    if symbol not in COMPARISONS:  # for 2.5 < a the interpreter asks a > 2.5
        assert_same(ys(apply(2.5, a)), reverse)
        assert apply(2.5, a).get_script() == f"2.500000 {symbol} ({name_a})"
    assert_same(ys(a), left)


@cases("symbol", *IN_PLACE)
def test_in_place_operators_write_where_everybody_sees_it(symbol):
    apply = IN_PLACE[symbol]
    a = series([7.0, -7.0, 0.0])
    shares, before = kvalo.TimeSeries(a), a
    other = kvalo.TimeSeries([10, 20, 30, 40], [3.0, 2.0, 1.0, 9.0])
    expected = [element(symbol, p, q) for p, q in zip([7.0, -7.0, 0.0], [3.0, 2.0, 1.0], strict=True)]
    a = apply(a, other)
    assert a is not before
    for one in (a, before, shares):
        assert_same(ys(one), expected)
        assert xs(one) == [0, 1, 2]
    assert a.get_script() == f"{before.get_script()} {symbol} ({other.get_script()})"
    expected = [element(symbol, p, 2) for p in expected]
    a = apply(a, 2)
    assert_same(ys(a), expected)
    assert a.get_script().endswith(f" {symbol} 2.000000")
    a[0] = 99.0
    assert ys(before)[0] != 99.0

    x = old = kvalo.Array([7.0, -7.0, 0.5])
    x = apply(x, kvalo.Array([2.0]))
    first = element(symbol, 7.0, 2.0)
    assert_same(x.to_list(), [first, 0.0, 0.0])
    assert_same(old.to_list(), [first, -7.0, 0.5])
    x = apply(old, 2)
    assert_same(x.to_list(), [element(symbol, v, 2) for v in (first, -7.0, 0.5)])
    assert_same(old.to_list(), x.to_list())


def test_unary_operators():
    a, array = series(SPECIAL), kvalo.Array(SPECIAL)
    name = a.get_script()
    for result, of_array, expected, script in (
        (-a, -array, [-v for v in SPECIAL], f"-({name})"),
        (abs(a), abs(array), [abs(v) for v in SPECIAL], f"math.abs({name})"),
        (~a, ~array, [float(v == 0) for v in SPECIAL], f"~({name})"),
    ):
        assert_same(ys(result), expected)
        assert_same(of_array.to_list(), expected)
        assert np.signbit(ys(result)).tolist() == np.signbit(np.array(expected)).tolist()
        assert result.get_script() == script


def test_arrays_of_different_length_continue_with_zero():
    long, short = kvalo.Array([1, 2, 3]), kvalo.Array([10])
    assert (short - long).to_list() == [9, -2, -3]
    assert (kvalo.Array() + long).to_list() == [1, 2, 3]
    assert (kvalo.Array() == kvalo.Array()).to_list() == []


def test_two_time_bases():
    a = series([1, 2, 3])
    # a series without samples has no value at any time
    empty = kvalo.TimeSeries([], [])
    assert xs(a * empty) == [0, 1, 2]
    assert all(math.isnan(v) for v in ys(a * empty))
    assert len(empty + empty) == 0
    # equal bases with a repeated stamp: it occurs once, with its last value
    twice = kvalo.TimeSeries([0, 1, 1, 2], [1, 2, 3, 4])
    assert xs(twice + twice) == [0, 1, 2]
    assert ys(twice + twice) == [2, 6, 8]
    # unordered or unknown stamps do no harm
    wild = kvalo.TimeSeries([3, math.nan, 1, -math.inf], [1, 2, 3, 4])
    assert xs(wild + a) == [-math.inf, 0, 1, 2, 3]


times = st.lists(st.one_of(st.integers(0, 40).map(float), st.floats(0, 40)), min_size=1, max_size=60)


@given(times, times, st.sampled_from(sorted(BINARY)))
def test_held_values_on_any_two_time_bases(ax, bx, symbol):
    a = (sorted(ax), [float(i % 5) for i in range(len(ax))])
    b = (sorted(bx), [float(i % 3) - 1.0 for i in range(len(bx))])
    result = BINARY[symbol](kvalo.TimeSeries(*a), kvalo.TimeSeries(*b))
    base = sorted(set(ax) | set(bx))
    assert xs(result) == base
    assert_same(ys(result), [element(symbol, held(*a, t), held(*b, t)) for t in base])


@cases("strict", True, False)
@cases("sizes", (400_000, 300_000), (700_000, 3), (1, 500_000), (250_000, 250_000))
def test_long_series_on_two_time_bases(sizes, strict):
    """Long enough for several threads: their shares must meet without a seam."""
    random = np.random.default_rng(5)
    operands, arrays = [], []
    for size in sizes:
        # a coarse grid makes stamps meet between the series, and within one unless they are made unique
        x = np.sort(random.integers(0, 4 * sum(sizes), size)) / 4.0
        x = np.unique(x) if strict else x
        y = random.normal(size=len(x))
        arrays.append((x, y))
        operands.append(series(y, x))
    base = np.union1d(arrays[0][0], arrays[1][0])
    values = [y[np.maximum(np.searchsorted(x, base, side="right") - 1, 0)] for x, y in arrays]
    result = operands[0] - operands[1]
    assert np.array_equal(np.asarray(result.xdata), base)
    assert np.array_equal(np.asarray(result.ydata), values[0] - values[1])


def test_operands_that_do_not_fit():
    class Sub(kvalo.TimeSeries):
        pass

    a, array = series([1, 2]), kvalo.Array([1, 2])
    for left, right in ((a, "x"), (a, array), (array, a), (array, None), (a, None), (Sub([0], [1]), a)):
        for apply in (*(BINARY[symbol] for symbol in NAMES), operator.lt, *IN_PLACE.values()):
            with pytest.raises(TypeError):
                apply(left, right)
    assert (a == "x") is False
    with pytest.raises(OverflowError):
        a + 10**400
    short = series([1])
    with pytest.raises(ValueError, match="sample by sample"):
        a += short
    assert ys(a) == [1, 2]
    with pytest.raises(Exception, match="kvalo.TimeSeries object is empty"):
        kvalo.TimeSeries() + 1
    for member in ("xdata", "ydata"):
        damaged = series([1, 2])
        setattr(damaged, member, kvalo.Array([1]))
        with pytest.raises(ValueError, match="times for"):
            damaged + 1
        setattr(damaged, member, [1, 2])
        with pytest.raises(Exception, match="empty"):
            damaged += 1


def test_scripts_do_not_grow_without_end():
    a = series([1])
    for _ in range(64):
        a = a + a
    assert ys(a) == [2.0**64]
    assert len(a.get_script()) <= 2**20


@cases(
    "who, write_to",
    ("operand", lambda a, copy, b: a.xdata.__setitem__(0, -5.0)),
    ("operand", lambda a, copy, b: copy.__setitem__(0, (-5.0, 0.0))),
    ("operand", lambda a, copy, b: np.asarray(a.xdata).__setitem__(0, -5.0)),
    ("result", lambda a, copy, b: b.__setitem__(0, (-5.0, 0.0))),
    ("result", lambda a, copy, b: np.asarray(b.xdata).__setitem__(0, -5.0)),
    ("result", lambda a, copy, b: kvalo.Array(b.xdata).__setitem__(0, -5.0)),
)
def test_a_result_has_time_stamps_of_its_own(who, write_to):
    a = series(range(4))
    copy = kvalo.TimeSeries(a)
    b = a + 1
    c = b * 2
    write_to(a, copy, b)
    first = {"operand": [-5.0, -5.0, 0.0, 0.0], "result": [0.0, 0.0, -5.0, 0.0]}[who]
    for one, stamp in zip((a, copy, b, c), first, strict=True):
        assert xs(one) == [stamp, 1.0, 2.0, 3.0]


def test_a_shared_time_base_outlives_its_first_owner():
    a = series([1.0] * 4)
    b = a > 0
    again = kvalo.TimeSeries(b.id64, 0.0, 1.0)
    again.load()
    del a
    b[0] = (7.0, 0.0)
    assert again[0] == (7.0, 0.0)
    assert xs(b)[1:3] == [1.0, 2.0]


FUNCTIONS = {
    name: getattr(np, name)
    for name in ["cos", "sin", "tan", "ceil", "floor", "trunc", "exp", "sqrt", "log", "log10"]
}
FUNCTIONS |= {f"{name}d": lambda v, f=FUNCTIONS[name]: f(v * np.pi / 180.0) for name in ("cos", "sin", "tan")}
FUNCTIONS |= {f"a{name}": getattr(np, f"arc{name}") for name in ("cos", "sin", "tan")}
FUNCTIONS |= {
    f"{name}d": lambda v, f=FUNCTIONS[name]: f(v) * 180.0 / np.pi for name in ("acos", "asin", "atan")
}
FUNCTIONS["round"] = lambda v: np.where(np.abs(v) < 2.0**52, np.copysign(np.floor(np.abs(v) + 0.5), v), v)


@cases("name", *FUNCTIONS)
def test_elementary_functions(name):
    values = [*SPECIAL, 0.5, -0.5, 1.5, 30.0, 60.0, 0.25, 1e-310, 2.0**51 + 0.5, 2.0**52 + 1.0, -(2.0**60)]
    function = getattr(kvalo, name)
    with np.errstate(all="ignore"):
        expected = FUNCTIONS[name](np.array(values))
    a = series(values)
    result = function(a)
    np.testing.assert_allclose(ys(result), expected, rtol=4e-15)
    assert_same(function(kvalo.Array(values)).to_list(), ys(result))
    assert result.get_script() == f"kvalo.{name}({a.get_script()})"
    assert xs(result) == xs(a)
    for wrong in (1.0, None, [1.0]):
        with pytest.raises(TypeError, match="Argument must be either kvalo.Array or kvalo.TimeSeries"):
            function(wrong)
    for wrong in ((), (a, a)):
        with pytest.raises(ValueError, match=f"'common_unary' takes 1 arguments .{len(wrong)} given"):
            function(*wrong)


def test_elementary_functions_are_the_c_library_s():
    assert kvalo.sind(kvalo.Array([30])).to_list() == [0.49999999999999994]
    assert kvalo.round(kvalo.Array([2.5, -2.5, 0.49999999999999994, -0.0])).to_list() == [3, -3, 0, 0]
    random = np.random.default_rng(2).normal(0, 10, 1000).tolist()
    for name in ("cos", "sin", "tan", "atan", "exp"):
        assert getattr(kvalo, name)(kvalo.Array(random)).to_list() == [getattr(math, name)(v) for v in random]


def test_angular_distance():
    a, b = series([10, 350, 0, -170, math.nan]), series([350, 10, 180, 1e9 + 190, 0])
    name = f"kvalo.angular_distance({a.get_script()}, {b.get_script()}, type='"
    result = kvalo.angular_distance(a, b)
    assert_same(ys(result), [20, 20, 180, 360 - (1e9 + 360) % 360, math.nan])
    assert result.get_script() == name + "deg')"
    assert kvalo.angular_distance(a, b, type="RAD").get_script() == name + "deg')"
    assert ys(kvalo.angular_distance(series([0.1]), series([-0.1]), type="rad")) == [0.2]
    with pytest.raises(TypeError, match="Arguments must be a kvalo.TimeSeries object"):
        kvalo.angular_distance(a, 3.0)


@given(st.floats(-1e6, 1e6), st.floats(-1e6, 1e6))
def test_angular_distance_is_the_shorter_way_round(p, q):
    for kind, turn in (("deg", 360.0), ("rad", 2 * math.pi)):
        (distance,) = ys(kvalo.angular_distance(series([p]), series([q]), type=kind))
        assert 0 <= distance <= turn / 2
        expected = math.cos((p - q) * 2 * math.pi / turn)
        assert math.cos(distance * 2 * math.pi / turn) == pytest.approx(expected, abs=1e-7)
