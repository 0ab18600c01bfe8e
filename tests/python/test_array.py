"""kvalo.Array: construction, elements, counting, logic, rounding, buffer views."""

import gc
import math
import operator

import kvalo
import numpy as np
import pytest
from common import cases
from hypothesis import given
from hypothesis import strategies as st

doubles = st.lists(st.floats(allow_nan=True, allow_infinity=True), max_size=200)


@cases(
    "arguments, values",
    ((), []),
    (([],), []),
    (([1, 2.5, True],), [1.0, 2.5, 1.0]),
    (([1, 2], 5), [1.0, 2.0]),
    ((3,), [0.0, 0.0, 0.0]),
    ((kvalo.Array([7]),), [7.0]),
)
def test_construction(arguments, values):
    assert kvalo.Array(*arguments).to_list() == values


@cases(
    "arguments, error, text",
    ((0,), ValueError, "Argument must be a positive integer"),
    ((-3,), ValueError, "Argument must be a positive integer"),
    ((-(10**30),), ValueError, "Argument must be a positive integer"),
    ((10**30,), MemoryError, None),
    ((2**61,), MemoryError, None),
    (((1, 2),), ValueError, "Constructor has invalid argument type"),
    (("a",), ValueError, "Constructor has invalid argument type"),
    ((1, 2, 3), ValueError, "Constructor does not take more than two arguments"),
    ((["x"],), TypeError, None),
)
def test_refused_construction(arguments, error, text):
    with pytest.raises(error, match=text):
        kvalo.Array(*arguments)


def test_a_list_that_shrinks_while_it_is_read_is_an_error():
    class Shrinks:
        def __float__(self):
            items.clear()
            return 1.0

    items = [Shrinks(), 2.0, 3.0]
    with pytest.raises(ValueError, match="changed its size"):
        kvalo.Array(items)


@cases(
    "values, text",
    ([], "[]"),
    ([1, 2.5, 3], "[1,2.5,3]"),
    ([math.nan, -math.inf, 1e20, 1 / 3], "[nan,-inf,1e+20,0.333333]"),
    (range(32), "[" + ",".join(map(str, range(32))) + "]"),
)
def test_repr(values, text):
    assert repr(kvalo.Array(list(values))) == text


def test_elements_count_from_both_ends():
    a = kvalo.Array([1, 2, 3])
    assert [a[0], a[2], a[-1], a[-3], len(a)] == [1.0, 3.0, 3.0, 1.0, 3]
    a[-1] = 9
    assert a.to_list() == [1.0, 2.0, 9.0]
    for index in (3, -4, -5, 10**30):
        with pytest.raises(IndexError):
            a[index]
        with pytest.raises(IndexError):
            a[index] = 0
    with pytest.raises(TypeError, match="Unsupported type"):
        a[0] = "x"
    with pytest.raises(TypeError):
        del a[0]
    with pytest.raises(Exception, match="Data is empty"):
        kvalo.Array()[0]


@given(doubles, st.floats(allow_nan=True, allow_infinity=True))
def test_statistics_agree_with_python(values, v):
    a = kvalo.Array(values)
    total = mean = 0.0
    for value in values:
        total += value
        mean += value / len(values)
    assert np.array_equal([a.sum(), a.avg()], [total, mean], equal_nan=True)
    for name in ("eq", "ne", "gt", "lt"):
        assert getattr(a, f"count_{name}")(v) == sum(getattr(operator, name)(x, v) for x in values)
    assert a.count_bt(v, v + 1) == sum(v < x < v + 1 for x in values)


@given(doubles, doubles)
def test_logic_pads_with_zeros(first, second):
    n = max(len(first), len(second))
    p = [x != 0 for x in first] + [False] * (n - len(first))
    q = [x != 0 for x in second] + [False] * (n - len(second))
    a, b = kvalo.Array(first), kvalo.Array(second)
    for name, apply in (("and", operator.and_), ("or", operator.or_), ("xor", operator.xor)):
        assert getattr(a, f"logical_{name}")(b).to_list() == list(map(apply, p, q))
    assert a.logical_not().to_list() == [float(x == 0) for x in first]
    assert (~a).to_list() == a.logical_not().to_list()
    assert a.logical_or(2).to_list() == [1.0] * len(first)


def test_round_makes_a_new_array():
    a = kvalo.Array([1234, 1250])
    assert (round(a, -2).to_list(), a.to_list()) == ([1200, 1300], [1234, 1250])


@cases(
    "call, error, text",
    (lambda a: a.count_eq(), ValueError, r"Function 'count_impl' takes 1 arguments \(0 given\)"),
    (lambda a: a.count_bt(1), ValueError, r"Function 'count_bt' takes 2 arguments \(1 given\)"),
    (lambda a: a.count_gt("a"), TypeError, "numeric"),
    (lambda a: a.logical_and(), ValueError, r"Function 'logical_and' takes 1 arguments \(0 given\)"),
    (lambda a: a.__round__(1, 2), Exception, "Wrong number of arguments"),
    (lambda a: round(a, 1.5), Exception, "Precision must be an integer"),
)
def test_refused_calls(call, error, text):
    with pytest.raises(error, match=text):
        call(kvalo.Array([1]))


def test_views_are_writable_share_and_outlive_the_array():
    a = kvalo.Array([1, 2, 3])
    view = memoryview(a)
    assert (view.format, view.ndim, view.shape, view.strides, view.readonly) == ("d", 1, (3,), (8,), False)
    n = np.asarray(a)
    n[0] = 5
    assert a[0] == 5.0
    a.__init__([4])  # the view keeps the samples it was made of
    del a
    gc.collect()
    assert n.tolist() == [5.0, 2.0, 3.0]
    assert np.asarray(kvalo.Array()).tolist() == []
