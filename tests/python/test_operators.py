"""Operators, comparisons and elementary functions of TimeSeries and Array."""

import math
import operator

import kvalo
import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

ARITHMETIC = {
    "+": operator.add,
    "-": operator.sub,
    "*": operator.mul,
    "/": operator.truediv,
    "%": operator.mod,
    "math.pow": operator.pow,
}
LOGIC = {"and": operator.and_, "or": operator.or_, "^": operator.xor}
COMPARISONS = {
    "<": operator.lt,
    "<=": operator.le,
    "==": operator.eq,
    "!=": operator.ne,
    ">": operator.gt,
    ">=": operator.ge,
}
BINARY = ARITHMETIC | LOGIC | COMPARISONS
IN_PLACE = {
    "+": operator.iadd,
    "-": operator.isub,
    "*": operator.imul,
    "/": operator.itruediv,
    "%": operator.imod,
    "math.pow": operator.ipow,
    "and": operator.iand,
    "or": operator.ior,
    "^": operator.ixor,
}
SPECIAL = [0.0, -0.0, 1.0, -1.0, 2.5, -7.0, 3.0, 1e300, math.inf, -math.inf, math.nan]


def element(symbol, a, b):
    """The same function in numpy's arithmetic, which is the processor's and the C library's."""
    a, b = np.float64(a), np.float64(b)
    with np.errstate(all="ignore"):
        match symbol:
            case "%":
                return np.fmod(np.fmod(a, b) + b, b)
            case "math.pow":
                return a**b
            case "and":
                return float(a != 0 and b != 0)
            case "or":
                return float(a != 0 or b != 0)
            case "^":
                return float((a != 0) != (b != 0))
            case _:
                return np.float64(BINARY[symbol](a, b))


def held(series, t):
    x, y = series
    last = 0
    while last + 1 < len(x) and t >= x[last + 1]:
        last += 1
    return y[last]


def x_of(series):
    return series.xdata.to_list()


def y_of(series):
    return series.ydata.to_list()


def assert_same(actual, expected):
    np.testing.assert_array_equal(np.array(actual), np.array(expected, dtype=float))


@pytest.mark.parametrize("symbol", BINARY)
def test_every_operator_on_every_kind_of_operand(symbol):
    apply = BINARY[symbol]
    pairs = [(p, q) for p in SPECIAL for q in SPECIAL]
    left, right = map(list, zip(*pairs, strict=True))
    stamps = [float(i) for i in range(len(pairs))]
    expected = [element(symbol, p, q) for p, q in pairs]
    with_number = [element(symbol, p, 2.5) for p in left]
    reverse = [element(symbol, 2.5, p) for p in left]

    assert_same(apply(kvalo.Array(left), kvalo.Array(right)).to_list(), expected)
    assert_same(apply(kvalo.Array(left), 2.5).to_list(), with_number)
    assert_same(apply(2.5, kvalo.Array(left)).to_list(), reverse)

    a, b = kvalo.TimeSeries(stamps, left), kvalo.TimeSeries(stamps, right)
    name_a, name_b = a.get_script(), b.get_script()
    for result, values, script in (
        (apply(a, b), expected, f"({name_a}) {symbol} ({name_b})"),
        (apply(a, 2.5), with_number, f"({name_a}) {symbol} 2.500000"),
        (apply(a, 3), [element(symbol, p, 3) for p in left], f"({name_a}) {symbol} 3.000000"),
    ):
        assert_same(y_of(result), values)
        assert x_of(result) == stamps
        assert result.get_script() == script
        assert result.flags == 0x81
    if symbol not in COMPARISONS:  # for 2.5 < a the interpreter asks a > 2.5
        assert_same(y_of(apply(2.5, a)), reverse)
        assert apply(2.5, a).get_script() == f"2.500000 {symbol} ({name_a})"
    assert_same(y_of(a), left)


@pytest.mark.parametrize("symbol", IN_PLACE)
def test_in_place_operators_write_where_everybody_sees_it(symbol):
    apply = IN_PLACE[symbol]
    a = kvalo.TimeSeries([0, 1, 2], [7.0, -7.0, 0.0])
    shares, before = kvalo.TimeSeries(a), a
    other = kvalo.TimeSeries([10, 20, 30, 40], [3.0, 2.0, 1.0, 9.0])
    expected = [element(symbol, p, q) for p, q in zip([7.0, -7.0, 0.0], [3.0, 2.0, 1.0], strict=True)]
    a = apply(a, other)
    assert a is not before
    for series in (a, before, shares):
        assert_same(y_of(series), expected)
        assert x_of(series) == [0, 1, 2]
    assert a.get_script() == f"{before.get_script()} {symbol} ({other.get_script()})"
    expected = [element(symbol, p, 2) for p in expected]
    a = apply(a, 2)
    assert_same(y_of(a), expected)
    assert a.get_script().endswith(f" {symbol} 2.000000")
    a[0] = 99.0
    assert y_of(before)[0] != 99.0

    x = old = kvalo.Array([7.0, -7.0, 0.5])
    x = apply(x, kvalo.Array([2.0]))
    first = element(symbol, 7.0, 2.0)
    assert_same(x.to_list(), [first, 0.0, 0.0])
    assert_same(old.to_list(), [first, -7.0, 0.5])
    x = apply(old, 2)
    assert_same(x.to_list(), [element(symbol, v, 2) for v in (first, -7.0, 0.5)])
    assert_same(old.to_list(), x.to_list())


def test_unary_operators():
    values = SPECIAL
    a = kvalo.TimeSeries([float(i) for i in range(len(values))], values)
    name = a.get_script()
    for result, array, expected, script in (
        (-a, -kvalo.Array(values), [-v for v in values], f"-({name})"),
        (abs(a), abs(kvalo.Array(values)), [abs(v) for v in values], f"math.abs({name})"),
        (~a, ~kvalo.Array(values), [float(v == 0) for v in values], f"~({name})"),
    ):
        assert_same(y_of(result), expected)
        assert_same(array.to_list(), expected)
        assert np.signbit(y_of(result)).tolist() == np.signbit(np.array(expected)).tolist()
        assert result.get_script() == script


def test_arrays_of_different_length_continue_with_zero():
    long, short = kvalo.Array([1, 2, 3]), kvalo.Array([10])
    assert (long + short).to_list() == [11, 2, 3]
    assert (short - long).to_list() == [9, -2, -3]
    assert (kvalo.Array() + long).to_list() == [1, 2, 3]
    assert (kvalo.Array() == kvalo.Array()).to_list() == []


def test_two_time_bases():
    a = kvalo.TimeSeries([0, 1, 2], [1, 2, 3])
    b = kvalo.TimeSeries([0.5, 1.5], [10, 20])
    assert x_of(a + b) == [0, 0.5, 1, 1.5, 2]
    assert y_of(a + b) == [11, 11, 12, 22, 23]
    # a series without samples has no value at any time
    empty = kvalo.TimeSeries([], [])
    assert x_of(a * empty) == [0, 1, 2]
    assert all(math.isnan(v) for v in y_of(a * empty))
    assert len(empty + empty) == 0
    # equal bases with a repeated stamp: it occurs once, with its last value
    twice = kvalo.TimeSeries([0, 1, 1, 2], [1, 2, 3, 4])
    assert x_of(twice + twice) == [0, 1, 2]
    assert y_of(twice + twice) == [2, 6, 8]
    # unordered or unknown stamps do no harm
    wild = kvalo.TimeSeries([3, math.nan, 1, -math.inf], [1, 2, 3, 4])
    assert x_of(wild + a) == [-math.inf, 0, 1, 2, 3]


times = st.lists(st.one_of(st.integers(0, 40).map(float), st.floats(0, 40)), min_size=1, max_size=60)


@settings(deadline=None)
@given(times, times, st.sampled_from(sorted(BINARY)))
def test_held_values_on_any_two_time_bases(ax, bx, symbol):
    a = (sorted(ax), [float(i % 5) for i in range(len(ax))])
    b = (sorted(bx), [float(i % 3) - 1.0 for i in range(len(bx))])
    result = BINARY[symbol](kvalo.TimeSeries(*a), kvalo.TimeSeries(*b))
    base = sorted(set(ax) | set(bx))
    assert x_of(result) == base
    assert_same(y_of(result), [element(symbol, held(a, t), held(b, t)) for t in base])


@pytest.mark.parametrize("strict", [True, False])
@pytest.mark.parametrize("sizes", [(400_000, 300_000), (700_000, 3), (1, 500_000), (250_000, 250_000)])
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
        operands.append(kvalo.TimeSeries(x.tolist(), y.tolist()))
    base = np.union1d(arrays[0][0], arrays[1][0])
    values = [y[np.maximum(np.searchsorted(x, base, side="right") - 1, 0)] for x, y in arrays]
    result = operands[0] - operands[1]
    assert np.array_equal(np.asarray(result.xdata), base)
    assert np.array_equal(np.asarray(result.ydata), values[0] - values[1])


def test_operands_that_do_not_fit():
    class Sub(kvalo.TimeSeries):
        pass

    a, array = kvalo.TimeSeries([0, 1], [1, 2]), kvalo.Array([1, 2])
    for left, right in ((a, "x"), (a, array), (array, a), (array, None), (a, None), (Sub([0], [1]), a)):
        for apply in (*ARITHMETIC.values(), *LOGIC.values(), operator.lt, *IN_PLACE.values()):
            with pytest.raises(TypeError):
                apply(left, right)
    assert (a == "x") is False
    with pytest.raises(OverflowError):
        a + 10**400
    short = kvalo.TimeSeries([0], [1])
    with pytest.raises(ValueError, match="sample by sample"):
        a += short
    assert y_of(a) == [1, 2]
    with pytest.raises(Exception, match="kvalo.TimeSeries object is empty"):
        kvalo.TimeSeries() + 1
    for member in ("xdata", "ydata"):
        damaged = kvalo.TimeSeries([0, 1], [1, 2])
        setattr(damaged, member, kvalo.Array([1]))
        with pytest.raises(ValueError, match="times for"):
            damaged + 1
        setattr(damaged, member, [1, 2])
        with pytest.raises(Exception, match="empty"):
            damaged += 1


def test_scripts_do_not_grow_without_end():
    a = kvalo.TimeSeries([0], [1])
    for _ in range(64):
        a = a + a
    assert y_of(a) == [2.0**64]
    assert len(a.get_script()) <= 2**20


LENT = 10_000  # long enough for results to borrow their time stamps


@pytest.mark.parametrize("who", ["operand", "copy", "result", "view of operand", "view of result", "Array"])
def test_a_result_has_time_stamps_of_its_own(who):
    stamps = [float(i) for i in range(LENT)]
    a = kvalo.TimeSeries(stamps, stamps)
    copy = kvalo.TimeSeries(a)
    b = a + 1
    c = b * 2
    assert x_of(c) == stamps
    match who:
        case "operand":
            a.xdata[0] = -5.0
        case "copy":
            copy[0] = (-5.0, 0.0)
        case "result":
            b[0] = (-5.0, 0.0)
        case "view of operand":
            np.asarray(a.xdata)[0] = -5.0
        case "view of result":
            np.asarray(b.xdata)[0] = -5.0
        case "Array":
            kvalo.Array(b.xdata)[0] = -5.0
    changed = {"operand": (a, copy), "copy": (a, copy), "view of operand": (a, copy)}.get(who, (b,))
    for series in (a, copy, b, c):
        assert series[0][0] == (-5.0 if any(series is s for s in changed) else 0.0)
        assert x_of(series)[1:] == stamps[1:]


def test_a_borrowed_time_base_outlives_its_owner():
    a = kvalo.TimeSeries([float(i) for i in range(LENT)], [1.0] * LENT)
    b = a > 0
    again = kvalo.TimeSeries(b.id64, 0.0, 1.0)
    assert len(again.xdata if again.load() is None else []) == LENT
    del a
    b[0] = (7.0, 0.0)
    assert again[0] == (7.0, 0.0)
    assert x_of(b)[1:3] == [1.0, 2.0]


FUNCTIONS = {
    "cos": np.cos,
    "sin": np.sin,
    "tan": np.tan,
    "cosd": lambda v: np.cos(v * np.pi / 180.0),
    "sind": lambda v: np.sin(v * np.pi / 180.0),
    "tand": lambda v: np.tan(v * np.pi / 180.0),
    "acos": np.arccos,
    "asin": np.arcsin,
    "atan": np.arctan,
    "acosd": lambda v: np.arccos(v) * 180.0 / np.pi,
    "asind": lambda v: np.arcsin(v) * 180.0 / np.pi,
    "atand": lambda v: np.arctan(v) * 180.0 / np.pi,
    "ceil": np.ceil,
    "floor": np.floor,
    "round": lambda v: np.where(np.abs(v) < 2.0**52, np.copysign(np.floor(np.abs(v) + 0.5), v), v),
    "trunc": np.trunc,
    "exp": np.exp,
    "sqrt": np.sqrt,
    "log": np.log,
    "log10": np.log10,
}


@pytest.mark.parametrize("name", FUNCTIONS)
def test_elementary_functions(name):
    values = [*SPECIAL, 0.5, -0.5, 1.5, 30.0, 60.0, 0.25, 1e-310, 2.0**51 + 0.5, 2.0**52 + 1.0, -(2.0**60)]
    function = getattr(kvalo, name)
    with np.errstate(all="ignore"):
        expected = FUNCTIONS[name](np.array(values))
    a = kvalo.TimeSeries([float(i) for i in range(len(values))], values)
    result = function(a)
    np.testing.assert_allclose(y_of(result), expected, rtol=4e-15)
    assert_same(function(kvalo.Array(values)).to_list(), y_of(result))
    assert result.get_script() == f"kvalo.{name}({a.get_script()})"
    assert x_of(result) == x_of(a)
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
    a = kvalo.TimeSeries([0, 1, 2, 3, 4], [10, 350, 0, -170, math.nan])
    b = kvalo.TimeSeries([0, 1, 2, 3, 4], [350, 10, 180, 1e9 + 190, 0])
    name = f"kvalo.angular_distance({a.get_script()}, {b.get_script()}, type='"
    result = kvalo.angular_distance(a, b)
    assert_same(y_of(result), [20, 20, 180, 360 - (1e9 + 360) % 360, math.nan])
    assert result.get_script() == name + "deg')"
    assert kvalo.angular_distance(a, b, type="RAD").get_script() == name + "deg')"
    radians = kvalo.angular_distance(kvalo.TimeSeries([0], [0.1]), kvalo.TimeSeries([0], [-0.1]), type="rad")
    assert y_of(radians) == [0.2]
    with pytest.raises(TypeError, match="Arguments must be a kvalo.TimeSeries object"):
        kvalo.angular_distance(a, 3.0)


@settings(deadline=None)
@given(st.floats(-1e6, 1e6), st.floats(-1e6, 1e6))
def test_angular_distance_is_the_shorter_way_round(p, q):
    a, b = kvalo.TimeSeries([0], [p]), kvalo.TimeSeries([0], [q])
    for kind, turn in (("deg", 360.0), ("rad", 2 * math.pi)):
        (distance,) = y_of(kvalo.angular_distance(a, b, type=kind))
        assert 0 <= distance <= turn / 2
        assert math.cos(distance * 2 * math.pi / turn) == pytest.approx(
            math.cos((p - q) * 2 * math.pi / turn), abs=1e-7
        )
