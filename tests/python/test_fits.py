"""fit_linear, fit_exp, fit_polynomial: against numpy, exact fractions and the texts they print."""

import math
from fractions import Fraction

import kvalo
import numpy as np
import pytest
from common import cases, series
from hypothesis import given, settings
from hypothesis import strategies as st


def exact_fit(x, y, order):
    """The least-squares coefficients in exact fractions, by the normal equations."""
    x, y = [Fraction(v) for v in x], [Fraction(v) for v in y]
    n = order + 1
    rows = [
        [sum(u ** (i + j) for u in x) for j in range(n)] + [sum(v * u**i for u, v in zip(x, y, strict=True))]
        for i in range(n)
    ]
    for i in range(n):
        pivot = next(k for k in range(i, n) if rows[k][i] != 0)
        rows[i], rows[pivot] = rows[pivot], rows[i]
        for k in range(n):
            if k != i:
                factor = rows[k][i] / rows[i][i]
                rows[k] = [a - factor * b for a, b in zip(rows[k], rows[i], strict=True)]
    return [float(rows[i][n] / rows[i][i]) for i in range(n)]


@cases("start", 0.0, -3e4, 1.7e9)
@cases("order", 1, 2, 3, 5, 9)
def test_coefficients_against_exact_fractions(start, order):
    t = start + np.arange(60) / 8
    y = np.cos(t - start) * 100 + 5 + np.random.default_rng(order).normal(size=60)
    s = series(y, t)
    expected = exact_fit(t.tolist(), y.tolist(), order)
    if order == 1:
        r, a, b = kvalo.fit_linear(s)
        found = [b, a]
    else:
        r, *found = kvalo.fit_polynomial(s, order)
    np.testing.assert_allclose(found, expected, rtol=1e-10)
    fitted = np.polyval(np.polyfit(t - start, y, order), t - start)
    assert r == pytest.approx(np.corrcoef(fitted, y)[0, 1], abs=1e-9)


@cases("n", 2, 255, 256, 257, 65536, 65537, 200001)
def test_lengths_around_the_borders_of_blocks(n):
    random = np.random.default_rng(n)
    x, y = np.sort(random.uniform(-4, 9, n)), random.normal(1e6, 3, n)
    r, a, b = kvalo.fit_linear(series(y, x))
    expected = np.polyfit(x - x.mean(), y - y.mean(), 1)[0]
    assert a == pytest.approx(expected, rel=1e-9)
    assert b == pytest.approx(y.mean() - expected * x.mean(), rel=1e-12)
    assert r == pytest.approx(abs(np.corrcoef(x, y)[0, 1]), abs=1e-9)


@cases("a, b", (2.5, -0.3), (1e-200, 4.0), (7.0, 0.125))
def test_exponential(a, b):
    x = np.arange(50) / 10
    r, found_a, found_b = kvalo.fit_exp(series(a * np.exp(b * x), x))
    assert (found_a, found_b) == (pytest.approx(a, rel=1e-9), pytest.approx(b, rel=1e-9))
    assert r == pytest.approx(math.copysign(1, b))
    noisy = np.exp(np.random.default_rng(7).normal(size=50))
    line = np.polyfit(x, np.log(noisy), 1)
    r, found_a, found_b = kvalo.fit_exp(series(noisy, x))
    np.testing.assert_allclose([found_b, math.log(found_a)], line, rtol=1e-9)
    assert r == pytest.approx(np.corrcoef(x, np.log(noisy))[0, 1])


@given(
    st.lists(st.tuples(st.integers(-1000, 1000), st.floats(-1e6, 1e6)), min_size=3, unique_by=lambda p: p[0])
)
@settings(max_examples=60)
def test_no_line_fits_better(points):
    points.sort()
    x, y = [float(p[0]) for p in points], [p[1] for p in points]
    _, a, b = kvalo.fit_linear(kvalo.TimeSeries(x, y))
    exact_b, exact_a = exact_fit(x, y, 1)
    spread = max(map(abs, y)) + 1e-30
    assert a == pytest.approx(exact_a, rel=1e-9, abs=1e-11 * spread)
    assert b == pytest.approx(exact_b, rel=1e-9, abs=1e-9 * spread)


def test_values_at_the_ends_of_the_range_of_a_double():
    x = [0.0, 1.0, 2.0, 3.0]
    for scale in (1e300, 1e-300):
        r, a, b = kvalo.fit_linear(kvalo.TimeSeries(x, [v * scale for v in (1.0, 3.0, 5.0, 7.0)]))
        assert (r, a, b) == (pytest.approx(1), pytest.approx(2 * scale), pytest.approx(scale))


def test_equal_values_have_no_correlation():
    r, *coefficients = kvalo.fit_polynomial(kvalo.TimeSeries([0, 1, 2, 5], [0.1] * 4), 2)
    assert math.isnan(r)
    assert coefficients == [0.1, 0, 0]


BAD = "^Order must be greater than 1 and less than 10$"
NOT_SERIES = "^Argument must be a kvalo.TimeSeries object$"


@cases(
    "call, error, text",
    (lambda s: kvalo.fit_linear(), ValueError, r"^Function 'fit_linear' takes 1 arguments \(0 given\)$"),
    (lambda s: kvalo.fit_exp(s, s), ValueError, r"^Function 'fit_exp' takes 1 arguments \(2 given\)$"),
    (lambda s: kvalo.fit_polynomial(s), ValueError, r"'fit_polynomial' takes 2 arguments \(1 given\)$"),
    (lambda s: kvalo.fit_linear(3), TypeError, NOT_SERIES),
    (lambda s: kvalo.fit_polynomial(3, 99), TypeError, NOT_SERIES),
    (lambda s: kvalo.fit_polynomial(s, 2.0), TypeError, "integer"),
    (lambda s: kvalo.fit_polynomial(s, 3), ValueError, "too few different time stamps|Not enough samples"),
    (lambda s: kvalo.fit_linear(series([], [])), ValueError, "^Not enough samples"),
    (lambda s: kvalo.fit_linear(series([1], [1])), ValueError, "^Not enough samples"),
    (lambda s: kvalo.fit_linear(series([1, 2], [1, 1])), ValueError, "time stamps are equal"),
    (lambda s: kvalo.fit_exp(series([1, 0])), ValueError, "sample 1 is 0.*greater"),
    (lambda s: kvalo.fit_exp(series([-1, 2])), ValueError, "sample 0 is -1"),
    (lambda s: kvalo.fit_linear(series([1, math.nan])), ValueError, "value of sample 1"),
    (lambda s: kvalo.fit_linear(series([1, 2], [0, math.inf])), ValueError, "stamp of sample 1"),
    *[(lambda s, n=n: kvalo.fit_polynomial(s, n), ValueError, BAD) for n in (-1, 0, 1, 10, 2**64, -(2**70))],
)
def test_refusals(call, error, text):
    with pytest.raises(error, match=text):
        call(series([1, 2, 3, 4], [0, 1, 1, 2]))
