"""kvalo.convert: names, kinds, constants."""

import itertools
import math

import kvalo
import pytest
from common import cases
from hypothesis import given
from hypothesis import strategies as st

# One of every name, in terms of the first unit of its kind: value = x * factor + offset.
KINDS = [
    {"deg": (1, 0), "rad": (180 / math.pi, 0)},
    {
        "m": (1, 0),
        "ft": (0.3048, 0),
        "in": (0.0254, 0),
        "km": (1e3, 0),
        "mile": (1609.344, 0),
        "nm": (1852, 0),
    },
    {"kg": (1, 0), "lb": (0.45359237, 0)},
    {"m/s": (1, 0), "kt": (1852 / 3600, 0), "km/h": (1 / 3.6, 0), "mph": (0.44704, 0)},
    {"k": (1, 0), "c": (1, 273.15), "f": (5 / 9, 459.67 * 5 / 9)},
]
ALIASES = """degree degrees deg|radian radians rad|foot feet ft|inch inches in|kilometer kilometers km|meter meters m
mile miles|nauticalmile nauticalmiles nautical_mile nautical_miles nm|kilogram kilograms kilo kg|pound pounds lbs lb
knot knots kn kt|km/h kph kilometers_per_hour|mile/h mph miles_per_hour|m/s mps meters_per_second
celsius c|fahrenheit f|kelvin k""".replace("\n", "|").split("|")
PAIRS = [(kind, a, b) for kind in KINDS for a in kind for b in kind if a != b]


def series(*y):
    return kvalo.TimeSeries([0.5 * i for i in range(len(y))], list(y))


@cases("kind, a, b", *PAIRS)
def test_every_pair_is_what_physics_says(kind, a, b):
    inputs = [-40.0, 0.0, 36.0, 1234.5]
    converted = kvalo.convert(series(*inputs), a, b)
    (fa, oa), (fb, ob) = kind[a], kind[b]
    expected = [(x * fa + oa - ob) / fb for x in inputs]
    assert converted.ydata.to_list() == pytest.approx(expected, rel=3e-5, abs=1e-9)
    assert converted.xdata.to_list() == [0.0, 0.5, 1.0, 1.5]


@cases(
    "a, b, x, result",
    ("c", "f", 100.0, 212.0),
    ("fahrenheit", "kelvin", 32.0, 273.15),
    ("foot", "km", 1000.0, 1000.0 * 0.0003047999902464003),  # agreed constants, not the exact ones
    ("lb", "kg", 3.0, 3.0 * 0.4535923699997481),
    ("kelvin", "f", 0.1, (0.1 - 273.15) * 1.8 + 32),
    ("knots", "M/S", 7.0, 7.0 * 0.5144456333854638),
)
def test_constants_and_order_of_operations(a, b, x, result):
    assert kvalo.convert(series(x), a, b)[0][1] == result


@cases("aliases", *ALIASES)
def test_aliases_name_one_unit(aliases):
    first, *others = aliases.split()
    for alias in (first, *(other.replace("_", " ").upper() for other in others)):
        with pytest.raises(ValueError, match=f"^Cannot convert '{alias}' into '{first}'$"):
            kvalo.convert(series(1), alias, first)


def test_kinds_do_not_mix():
    for a, b in itertools.permutations([next(iter(kind)) for kind in KINDS], 2):
        with pytest.raises(ValueError, match=f"^Cannot convert '{a}' into '{b}'$"):
            kvalo.convert(series(1), a, b)


@cases(
    "arguments, error, text",
    ((1, "yard", "furlong"), ValueError, "^Unknown unit 'yard'$"),  # units before the series
    ((1, "m", "Yard"), ValueError, "^Unknown unit 'Yard'$"),
    ((1, " m", "km"), ValueError, "^Unknown unit ' m'$"),
    ((1, "", "km"), ValueError, "^Unknown unit ''$"),
    ((1, "m", "km"), TypeError, "^Argument must be a kvalo.TimeSeries object$"),
    ((1, "m"), TypeError, None),
    ((1, "m", 3), TypeError, None),
    ((1, "m\0", "km"), ValueError, "null character"),
)
def test_refusals(arguments, error, text):
    with pytest.raises(error, match=text):
        kvalo.convert(*arguments)


@given(st.lists(st.floats(), max_size=20))
def test_any_values(y):
    for x, converted in zip(y, kvalo.convert(series(*y), "f", "k").ydata.to_list(), strict=True):
        expected = (x + -32.0) * 0.5555555555555556 + 273.15
        assert converted == expected or (math.isnan(converted) and math.isnan(expected))
