"""Calculus, filters, bit fields and logic on one long series, against NumPy and SciPy doing the same work.

The logic functions have no counterpart there; they are held against copying the samples they read.
"""

from harness import Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
from scipy.signal import lfilter

SAMPLES = 10_000_000


def as_array(values: np.ndarray) -> kvalo.Array:
    array = kvalo.Array(len(values))
    np.asarray(array)[:] = values
    return array.clone()  # one that no view looks into, as a loaded one is


def series(t: kvalo.Array, values: np.ndarray) -> kvalo.TimeSeries:
    result = kvalo.TimeSeries()
    result.xdata, result.ydata = t, as_array(values)
    return result


def calculus(t: np.ndarray, y: np.ndarray, words: np.ndarray) -> list[Row]:
    stamps = as_array(t)
    s, recorded = series(stamps, y), series(stamps, words)
    period = float(np.sort(np.diff(t[:10]))[5])

    def smoothed() -> np.ndarray:
        alpha = period / (period + 0.5)
        return lfilter([alpha], [1, alpha - 1], y, zi=[(1 - alpha) * y[0]])[0]

    def trapezoids() -> np.ndarray:
        return np.cumsum((y[:-1] + y[1:]) * np.diff(t) * 0.5)

    def digits(total: int = 0) -> np.ndarray:
        field = words.astype(np.uint64) & np.uint64(0xFFFF)
        return sum(((field >> np.uint64(4 * k)) & np.uint64(15)) * np.uint64(10**k) for k in range(4)) + 0.0

    def bits() -> np.ndarray:
        return ((words.astype(np.uint64) >> np.uint64(4)) & np.uint64(0xFF)) * 0.5 + 3.0

    questions = [
        ("derivative", lambda: kvalo.derivative(s), lambda: np.diff(y) / np.diff(t), 1.0),
        ("integral", lambda: kvalo.integral(s), trapezoids, 1.0),
        ("diff", lambda: kvalo.diff(s), lambda: np.diff(y), 1.0),
        ("accumulate", lambda: kvalo.accumulate(s), lambda: np.cumsum(y), 1.0),
        (
            "estimate_sampling_frequency",
            lambda: kvalo.estimate_sampling_frequency(s),
            lambda: 1 / np.diff(t),
            1.0,
        ),
        ("lowpass", lambda: kvalo.lowpass(s, 0.5), smoothed, 0.5),
        ("unpack", lambda: kvalo.unpack(recorded, 11, 4, gain=0.5, bias=3.0), bits, 0.5),
        ("unpack BCD", lambda: kvalo.unpack(recorded, 15, type="BCD"), digits, 0.5),
        ("clamp", lambda: kvalo.clamp(s, -1.0, 1.0), lambda: np.clip(y, -1.0, 1.0), 1.0),
        ("lerp", lambda: kvalo.lerp(s, 2.0, 5.0), lambda: 2.0 + y * 3.0, 1.0),
    ]
    rows = []
    for name, ours, theirs, target in questions:
        expected = theirs()
        got = np.asarray(ours().ydata)[-len(expected) :]
        check(name, np.allclose(got, expected, rtol=1e-9, atol=1e-9))
        del got, expected
        print(f"{name}:")
        timings = measure({"kvalo": ours, "numpy": theirs})
        peer = "lfilter" if name == "lowpass" else "the same in numpy"
        rows.append(ratio(f"{name}, ten million samples / {peer}", timings, "kvalo", "numpy", target))
    return rows


def logic(t: np.ndarray, y: np.ndarray) -> list[Row]:
    """Noise, where no branch can be foreseen, and long constant stretches."""
    stamps = as_array(t)
    rows = []
    for kind, values in (("noise", np.round(y)), ("plateaus", np.repeat(np.round(y[::1000]), 1000))):
        s = series(stamps, values)
        contenders = {
            "copy": lambda values=values: (t.copy(), values.copy()),
            "debounce": lambda s=s: kvalo.debounce(s, 0.05, 0.02),
            "hysteresis": lambda s=s: kvalo.hysteresis(s, -1.0, 1.0),
            "in_range": lambda s=s: kvalo.in_range(s, -1.0, 1.0, 0.05),
            "stale": lambda s=s: kvalo.stale(s, 0.05),
            "drop": lambda s=s: kvalo.drop(s, -1.0, 1.0),
        }
        outside = np.flatnonzero(np.abs(values) > 1)
        since = t - t[np.maximum.accumulate(np.where(np.abs(values) > 1, np.arange(len(t)), outside[0]))]
        late = slice(outside[0] + 1000, None)
        check(
            "in_range", np.array_equal(np.asarray(contenders["in_range"]().ydata)[late], (since > 0.05)[late])
        )
        kept = (values > -1.0) & (values < 1.0)
        check("drop", np.array_equal(np.asarray(contenders["drop"]().xdata), t[kept]))
        print(f"{kind}:")
        timings = measure(contenders)
        for name in list(contenders)[1:]:
            rows.append(ratio(f"{name}, {kind} / copying x and y", timings, name, "copy", 3.0))
    return rows


def benchmark() -> list[Row]:
    random = np.random.default_rng(5)
    t = np.arange(SAMPLES) * 0.001
    y = random.normal(0.0, 1.0, SAMPLES)
    words = random.integers(0, 10, (4, SAMPLES)).astype(float)
    words = words[0] + 16 * words[1] + 256 * words[2] + 4096 * words[3]
    return calculus(t, y, words) + logic(t, y)


if __name__ == "__main__":
    main(benchmark)
