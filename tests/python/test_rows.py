"""How arguments arrive: by position or name, in every type that stands for a value, and what is refused."""

import fractions
import inspect

import kvalo
import numpy as np
import pytest
from common import cases, series, ys


@pytest.fixture
def ts():
    return series([0, 1, 2, 3])


class Text(str):
    pass


@cases("half", 0.5, np.float64(0.5), np.float32(0.5), fractions.Fraction(1, 2))
def test_any_number_is_a_number_by_position_and_by_name(ts, half):
    expected = ys(kvalo.clamp(ts, 0.5, 2.0))
    for result in (
        kvalo.clamp(ts, half, 2),
        kvalo.clamp(ts, half, upper=np.int64(2)),
        kvalo.clamp(ts, upper=2.0, lower=half),
        kvalo.clamp(ts, **{Text("lower"): half, "upper": 2}),
    ):
        assert ys(result) == expected
        assert result.get_script() == f"kvalo.clamp({ts.get_script()}, lower=0.5, upper=2)"


def test_defaults_are_those_that_the_signature_shows(ts):
    for function in (kvalo.debounce, kvalo.clamp, kvalo.drop, kvalo.in_range, kvalo.unpack):
        parameters = inspect.signature(function).parameters.values()
        given = {p.name: p.default for p in parameters if p.default is not p.empty}
        assert ys(function(ts)) == ys(function(ts, **given))
        assert function(ts).get_script() == function(ts, **given).get_script()


def test_of_two_names_the_later_parameter_stands():
    word = series([255])
    assert ys(kvalo.unpack(word, msb=3, resolution=2, offset=1)) == [31]
    assert ys(kvalo.unpack(word, msb=3, gain=3, resolution=2, bias=2, offset=1)) == [47]


@cases(
    "call, error, text",
    (lambda ts: kvalo.lowpass(), TypeError, r"lowpass\(\) takes at least 1 positional argument"),
    (lambda ts: kvalo.lowpass(ts), TypeError, r"lowpass\(\) missing required argument 'tau' \(pos 2\)"),
    (lambda ts: kvalo.lowpass(ts, 1, 2), TypeError, r"lowpass\(\) takes at most 2 arguments \(3 given\)"),
    (lambda ts: kvalo.lowpass(ts, 1, tau=2), TypeError, r"lowpass\(\) takes at most 2 arguments \(3 given\)"),
    (lambda ts: kvalo.clamp(ts, 1, lower=2), TypeError, r"clamp\(\) given by name \('lower'\) and position"),
    (lambda ts: kvalo.clamp(ts, low=1), TypeError, r"'low' is an invalid keyword argument for clamp\(\)"),
    (
        lambda ts: kvalo.clamp(series=ts),
        TypeError,
        r"clamp\(\) takes at least 1 positional argument \(0 given\)",
    ),
    (lambda ts: kvalo.lowpass(ts, "1"), TypeError, "must be real number, not str"),
    (lambda ts: kvalo.lowpass(ts, 10**400), OverflowError, "int too large"),
    (lambda ts: kvalo.drop(ts, op1=1), TypeError, r"drop\(\) argument 4 must be str, not int"),
    (lambda ts: kvalo.drop(ts, op1="le\0"), ValueError, "embedded null character"),
    (lambda ts: kvalo.drop(ts, op1="\udc80"), UnicodeEncodeError, "surrogates"),
    (lambda ts: kvalo.convert(ts, "m"), TypeError, r"convert\(\) takes exactly 3 arguments \(2 given\)"),
    (lambda ts: kvalo.convert(ts, "m", 1), TypeError, r"convert\(\) argument 3 must be str, not int"),
    (lambda ts: kvalo.convert(ts, "m", to_unit="ft"), TypeError, "takes no keyword arguments"),
    (lambda ts: kvalo.Container(paths="x"), TypeError, r"invalid keyword argument for Container\(\)"),
    (lambda ts: kvalo.Container(**{1: "x"}), TypeError, "keywords must be strings"),
    (lambda ts: kvalo.Container(realtime=256), OverflowError, "greater than maximum"),
    (lambda ts: ts.index("x"), TypeError, "must be real number, not str"),
    (lambda ts: ts.index(1, relation="lt"), TypeError, r"invalid keyword argument for index\(\)"),
    (lambda ts: ts.max(1), TypeError, r"max\(\) takes no arguments \(1 given\)"),
    (lambda ts: kvalo.sin(), ValueError, r"^Function 'common_unary' takes 1 arguments \(0 given\)$"),
    (
        lambda ts: ts.ydata.count_gt(1, 2),
        ValueError,
        r"^Function 'count_impl' takes 1 arguments \(2 given\)$",
    ),
    (lambda ts: kvalo.derivative(), ValueError, "^Function takes at least one argument$"),
)
def test_refusals_name_the_function(ts, call, error, text):
    with pytest.raises(error, match=text):
        call(ts)


def test_converting_an_argument_may_run_scripts(ts):
    class Late:
        def __init__(self, value):
            self.value = value

        def __float__(self):
            if isinstance(self.value, Exception):
                raise self.value
            return self.value

    assert ys(kvalo.clamp(ts, Late(1.0), Late(2.0))) == [1, 1, 2, 2]
    with pytest.raises(KeyError, match="gone"):
        kvalo.clamp(ts, 0.0, upper=Late(KeyError("gone")))
