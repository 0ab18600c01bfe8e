"""fftdata, histdata and heatmapdata: against numpy and scipy, and what they refuse."""

import math

import kvalo
import numpy as np
import pytest
import scipy.fft
from common import cases, series
from hypothesis import given
from hypothesis import strategies as st

INF, NAN = math.inf, math.nan
NO_HEATMAP = "^It was not possible to compute the heatmap with selected range$"


# Odd, even, prime, twice a prime, and lengths on both sides of those done on several threads.
@cases("n", 3, 4, 5, 6, 7, 16, 997, 1024, 2018, 3027, 10007, 32768, 40014, 65537, 131075)
def test_spectrum_against_scipy(n):
    y = np.random.default_rng(n).normal(3, 2, n)
    frequencies, values = map(np.array, kvalo.fftdata(series(y, 1.7e9 + np.arange(n) / 128)))
    peer = 2 * np.abs(scipy.fft.rfft(y)) / n
    peer[0] /= 2
    if n % 2 == 0:
        peer[-1] /= 2
    np.testing.assert_allclose(values, peer, rtol=1e-11, atol=1e-14)
    np.testing.assert_allclose(frequencies, scipy.fft.rfftfreq(n, 1 / 128), rtol=1e-12)


def test_a_sine_shows_its_amplitude_within_the_selected_times():
    t = np.arange(400) / 100
    s = series(np.where(t < 1, 50, 5 + 3 * np.sin(2 * np.pi * 10 * t)), t)
    frequencies, values = kvalo.fftdata(s, ini=1, end=1.995)
    assert len(values) == len(frequencies) == 51
    assert all(type(v) is float for v in frequencies + values)
    assert frequencies[10] == pytest.approx(10)
    assert values[0] == pytest.approx(5)
    assert values[10] == pytest.approx(3)
    assert max(v for k, v in enumerate(values) if k not in (0, 10)) < 1e-12


@cases("scale", 1e300, 1e-300, 5e-324)
def test_spectrum_at_the_ends_of_the_range_of_a_double(scale):
    values = kvalo.fftdata(series([scale, scale, scale, scale]))[1]
    assert values == (scale, 0, 0)


def test_a_pause_does_not_change_the_sampling_period():
    t = np.concatenate([np.arange(100) / 10, 500 + np.arange(100) / 10])
    assert kvalo.fftdata(series(t, t))[0][-1] == pytest.approx(5)


samples = st.lists(st.floats(-1e9, 1e9) | st.sampled_from([0.0, 0.1, 0.3, 1.0, NAN]), min_size=3)


@given(samples.filter(lambda v: not all(map(math.isnan, v))), st.integers(3, 40))
def test_histogram_against_numpy(values, bins):
    clean = np.array([v for v in values if v == v])
    s = series(values)
    try:
        counts, edges = np.histogram(clean, bins)
    except ValueError:
        with pytest.raises(ValueError, match="no room for"):
            kvalo.histdata(s, nbins=bins)
        return
    found = kvalo.histdata(s, nbins=bins)
    assert [count for _, count in found] == counts.tolist()
    labels = [f"[{lo:g}, {hi:g})" for lo, hi in zip(edges, edges[1:], strict=False)]
    assert [label for label, _ in found] == labels


def test_long_histogram_and_samples_at_the_edges():
    y = np.random.default_rng(5).integers(0, 701, 300_001) / 7
    for bins in (7, 70, 700, 701):
        found = [count for _, count in kvalo.histdata(series(y), nbins=bins)]
        assert found == np.histogram(y, bins)[0].tolist()


def test_stamps_that_stand_still_have_no_spectrum():
    with pytest.raises(ValueError, match="do not ascend"):
        kvalo.fftdata(series([1, 2, 3, 4], [1, 1, 1, 1]))


@cases("nbins, bins", (0, 3), (1, 3), (2, 3), (3, 3), (8, 8), (100_000, 100_000))
def test_number_of_bins(nbins, bins):
    assert len(kvalo.histdata(series([0, 1, 2, 3]), nbins=nbins)) == bins


def hold_pairs(tx, x, ty, y):
    """X with the last Y that is not later, as plain loops pair them."""
    held = [[b for u, b in zip(ty, y, strict=True) if u <= t][-1:] for t in tx]
    pairs = [(a, b[0]) for a, b in zip(x, held, strict=True) if b]
    return [(a, b) for a, b in pairs if a == a and b == b]


stamps = st.lists(st.integers(0, 60), min_size=3, max_size=40).map(sorted)


@given(stamps, stamps, st.data())
def test_heatmap_against_numpy(tx, ty, data):
    cells = st.integers(-5000, 5000).map(lambda v: v / 1000) | st.just(NAN) | st.integers(-3, 3).map(float)
    x = data.draw(st.lists(cells, min_size=len(tx), max_size=len(tx)))
    y = data.draw(st.lists(cells, min_size=len(ty), max_size=len(ty)))
    pairs = hold_pairs(tx, x, ty, y)
    sx, sy = series(x, tx), series(y, ty)
    if not pairs:
        with pytest.raises(ValueError, match=NO_HEATMAP):
            kvalo.heatmapdata(sx, sy)
        return
    peer, columns, rows = np.histogram2d(*zip(*pairs, strict=True), bins=(4, 6))
    matrix, column_labels, row_labels = kvalo.heatmapdata(sx, sy, cols=4, rows=6)
    assert np.array(matrix).T.tolist() == peer.tolist()
    for labels, edges in ((column_labels, columns), (row_labels, rows)):
        np.testing.assert_allclose([*map(float, labels)], (edges[1:] + edges[:-1]) / 2, rtol=1e-5, atol=1e-12)


def test_heatmap_takes_the_last_value_of_a_stamp():
    matrix = kvalo.heatmapdata(
        series([1, 2, 3], [0, 1, 2]), series([5, 6, 7, 9], [0, 1, 2, 2]), cols=3, rows=4
    )[0]
    assert np.array_equal(np.array(matrix).T, np.histogram2d([1, 2, 3], [5, 6, 9], (3, 4))[0])


def test_heatmap_shape_and_seams_between_threads():
    random = np.random.default_rng(11)
    n = 200_000
    ty = np.sort(random.uniform(0, 1000, 30_000))
    tx = np.sort(random.uniform(0, 1000, n))
    x, y = random.normal(size=n), random.normal(size=len(ty))
    at = np.searchsorted(ty, tx, side="right") - 1
    peer = np.histogram2d(x[at >= 0], y[at[at >= 0]], (3, 1000))[0]
    matrix, columns, rows = kvalo.heatmapdata(series(x, tx), series(y, ty), cols=1, rows=5000)
    assert (len(matrix), len(matrix[0]), len(columns), len(rows)) == (1000, 3, 3, 1000)
    assert np.array_equal(np.array(matrix).T, peer)


THREE = series([1, 2, 4], [0, 1, 2])
CALLS = {
    "FFT": kvalo.fftdata,
    "histogram": kvalo.histdata,
    "heatmap": lambda s, *args, **keywords: kvalo.heatmapdata(s, s, *args, **keywords),
}


@cases("chart", *CALLS)
def test_ranges(chart):
    call = CALLS[chart]
    call(THREE)
    call(THREE, 0, 2)
    few = f"^Not enough samples to compute {chart}$"
    for s, ini, end in [
        (THREE, 0, 1.5),
        (THREE, 5, 9),
        (THREE, -9, -5),
        (series([], []), 0, 1),
        (series([1, 2, 3], [2, 1, 0]), 1.5, 1.75),
    ]:
        with pytest.raises(ValueError, match=few):
            call(s, ini=ini, end=end)
    for ini, end in [(1, 1), (2, 1)]:
        with pytest.raises(ValueError, match="^Final time must be greater than initial time$"):
            call(3, ini=ini, end=end)
    with pytest.raises(TypeError, match="^Argument must be a kvalo.TimeSeries object$"):
        call(3)


@cases(
    "call, values, text",
    (kvalo.fftdata, [1, NAN, 2], "not finite"),
    (kvalo.fftdata, [1, INF, 2], "not finite"),
    (kvalo.histdata, [NAN] * 3, "NaN"),
    (kvalo.histdata, [1, -INF, 2], "infinite"),
    (kvalo.histdata, [-1.7e308, 0, 1.7e308], "too far apart"),
    (kvalo.histdata, [0, 0, 5e-324], "no room"),
    (lambda s: kvalo.histdata(s, nbins=-1), [1, 2, 3], "must not be negative"),
    (lambda s: kvalo.histdata(s, nbins=2**31 - 1), [1, 2, 3], "between 1 and 1000000"),
    (CALLS["heatmap"], [NAN] * 3, NO_HEATMAP),
    (CALLS["heatmap"], [1, INF, 2], "infinite"),
)
def test_values_that_cannot_be_used(call, values, text):
    with pytest.raises(ValueError, match=text):
        call(series(values))
