"""Spectrum, histogram, heatmap and fits against numpy and scipy."""

from harness import Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
import scipy.fft

MANY = 10_000_000
LENGTHS = {"2^20": 2**20, "1e6": 1_000_000, "1000003 (prime)": 1_000_003}
ORDER = 5


def series(x: np.ndarray, y: np.ndarray) -> kvalo.TimeSeries:
    """A series like one that was loaded: nobody else can write its samples."""
    made = kvalo.TimeSeries()
    for axis, values in (("xdata", x), ("ydata", y)):
        array = kvalo.create_array_zeros(len(values))
        np.asarray(array)[:] = values
        setattr(made, axis, array.clone())
    return made


def spectrum(random: np.random.Generator) -> list[Row]:
    rows = []
    for name, n in LENGTHS.items():
        y = random.normal(size=n)
        s = series(np.arange(n) / 1024, y)
        peer = np.abs(scipy.fft.rfft(y))
        ours = np.array(kvalo.fftdata(s)[1])
        check(f"spectrum of {name}", np.allclose(ours[1:-1], 2 / n * peer[1:-1], rtol=1e-9, atol=1e-12))
        timings = measure(
            {
                "fftdata": lambda s=s: kvalo.fftdata(s),
                "scipy": lambda y=y: np.abs(scipy.fft.rfft(y)),
                # What the two tuples cost alone.
                "to tuples": lambda p=peer: (tuple(p.tolist()), tuple(p.tolist())),
            },
            rounds=9,
        )
        share = timings["to tuples"].best / timings["fftdata"].best
        print(f"  numpy takes {share:.0%} of the time of fftdata for as many Python numbers")
        rows.append(
            ratio(f"Spectrum of {name} points / scipy rfft and abs", timings, "fftdata", "scipy", 1.0)
        )
    return rows


def distribution(random: np.random.Generator) -> list[Row]:
    t = np.arange(MANY) / 1024
    x, y = random.normal(size=MANY), random.normal(size=MANY)
    a, b = series(t, x), series(t, y)
    counts = [count for _, count in kvalo.histdata(a, nbins=100)]
    check("histogram", np.array_equal(counts, np.histogram(x, 100)[0]))
    cells = np.array(kvalo.heatmapdata(a, b)[0])
    check("heatmap", np.array_equal(cells.T, np.histogram2d(x, y, 30)[0]))
    one = measure({"histdata": lambda: kvalo.histdata(a, nbins=100), "numpy": lambda: np.histogram(x, 100)})
    two = measure({"heatmapdata": lambda: kvalo.heatmapdata(a, b), "numpy": lambda: np.histogram2d(x, y, 30)})
    return [
        ratio("Histogram of 1e7 samples / numpy", one, "histdata", "numpy", 0.15),
        ratio("Heatmap of 1e7 samples / numpy histogram2d", two, "heatmapdata", "numpy", 0.05),
    ]


def fits(random: np.random.Generator) -> list[Row]:
    n = 1_000_000
    x = np.arange(n) / 1e5
    y = np.sin(x) + random.normal(size=n)
    s = series(x, y)
    check(
        "polynomial",
        np.allclose(kvalo.fit_polynomial(s, ORDER)[1:], np.polyfit(x, y, ORDER)[::-1], rtol=1e-8),
    )
    timings = measure(
        {"fit_polynomial": lambda: kvalo.fit_polynomial(s, ORDER), "numpy": lambda: np.polyfit(x, y, ORDER)}
    )
    return [
        ratio("Polynomial of order 5, 1e6 samples / numpy polyfit", timings, "fit_polynomial", "numpy", 1)
    ]


def benchmark() -> list[Row]:
    random = np.random.default_rng(54)
    return spectrum(random) + distribution(random) + fits(random)


if __name__ == "__main__":
    main(benchmark)
