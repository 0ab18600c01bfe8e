"""Operators, comparisons and elementary functions on ten million samples."""

from harness import Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
import pandas as pd

N = 10_000_000


def series(x: np.ndarray, y: np.ndarray) -> kvalo.TimeSeries:
    """A series whose vectors nobody else sees, as one that was loaded."""
    made = kvalo.TimeSeries()
    for name, values in (("xdata", x), ("ydata", y)):
        array = kvalo.Array(len(values))
        np.asarray(array)[:] = values
        setattr(made, name, array.clone())
    return made


def same(result: kvalo.TimeSeries, expected: np.ndarray, **tolerance: float) -> bool:
    return np.allclose(np.asarray(result.ydata.clone()), expected, equal_nan=True, **tolerance)


def on_one_time_base(random: np.random.Generator, x: np.ndarray) -> list[Row]:
    u, v = random.random(N), random.random(N)
    a = series(x, u)
    b = kvalo.TimeSeries(a)
    b.ydata = series(x, v).ydata
    check("a + b", same(a + b, u + v, rtol=0))
    check("a > c", same(a > 0.5, u > 0.5, rtol=0))
    add = measure({"kvalo": lambda: a + b, "numpy": lambda: u + v})
    compare = measure(
        {
            "kvalo": lambda: a > 0.5,
            "numpy": lambda: u > 0.5,
            "numpy, as numbers": lambda: (u > 0.5).astype(float),
        }
    )
    return [
        ratio("a + b on one time base / numpy, values alone", add, "kvalo", "numpy", 2.0),
        ratio("a > c / numpy, one byte a value", compare, "kvalo", "numpy", 1.5),
    ]


def on_two_time_bases(random: np.random.Generator) -> list[Row]:
    stamps = [np.sort(random.random(N) * 1000.0) for _ in range(2)]
    values = [random.random(N) for _ in range(2)]
    a, b = (series(x, y) for x, y in zip(stamps, values, strict=True))
    left, right = (pd.DataFrame({"t": x, name: y}) for name, x, y in zip("ab", stamps, values, strict=True))

    def with_pandas() -> pd.DataFrame:
        base = pd.DataFrame({"t": np.union1d(*stamps)})
        held = pd.merge_asof(pd.merge_asof(base, left, on="t"), right, on="t")
        return held["a"] + held["b"]

    def merge_asof_alone() -> pd.Series:
        held = pd.merge_asof(left, right, on="t")
        return held["a"] + held["b"]

    sums, expected = np.asarray((a + b).ydata.clone()), with_pandas().to_numpy()
    known = ~np.isnan(expected)  # kvalo holds the first value backwards, pandas has none there
    check("a + b on two time bases", np.array_equal(sums[known], expected[known]) and known.mean() > 0.99)
    del sums, expected, known
    timings = measure(
        {"kvalo": lambda: a + b, "pandas": with_pandas, "merge_asof alone": merge_asof_alone}, rounds=3
    )
    return [
        ratio("a + b on two time bases / pandas merge_asof and add", timings, "kvalo", "pandas", 0.15),
        ratio("the same / merge_asof onto the stamps of a alone", timings, "kvalo", "merge_asof alone", 0.15),
    ]


def elementary(random: np.random.Generator, x: np.ndarray) -> list[Row]:
    u = random.random(N)
    a = series(x, u)
    names = {"acos": np.arccos, "asin": np.arcsin, "atan": np.arctan}
    rows = []
    for name in (
        "sin",
        "cos",
        "tan",
        "acos",
        "asin",
        "atan",
        "exp",
        "log",
        "log10",
        "sqrt",
        "floor",
        "ceil",
        "trunc",
        "round",
    ):
        ours, theirs = getattr(kvalo, name), names.get(name) or getattr(np, name)
        check(name, same(ours(a), theirs(u), rtol=1e-14))
        timings = measure({"kvalo": lambda f=ours: f(a), "numpy": lambda f=theirs: f(u)}, rounds=3)
        rows.append(ratio(f"kvalo.{name} / numpy", timings, "kvalo", "numpy", 1.0))
    for name in ("cosd", "sind", "tand"):
        ours, theirs = getattr(kvalo, name), getattr(np, name[:-1])
        timings = measure(
            {"kvalo": lambda f=ours: f(a), "numpy": lambda f=theirs: f(np.radians(u))}, rounds=3
        )
        rows.append(ratio(f"kvalo.{name} / numpy", timings, "kvalo", "numpy", 1.0))
    return rows


def benchmark() -> list[Row]:
    random = np.random.default_rng(33)
    x = np.arange(N) * 0.01
    return on_one_time_base(random, x) + on_two_time_bases(random) + elementary(random, x)


if __name__ == "__main__":
    main(benchmark)
