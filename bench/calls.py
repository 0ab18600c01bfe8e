"""What a call costs apart from its samples, and operators on short and middling series that share one clock."""

import time
from collections.abc import Callable

from harness import Row, check, main

import kvalo  # isort: skip
import numpy as np


def seconds(contenders: dict[str, Callable[[], object]], calls: int, rounds: int = 15) -> dict[str, float]:
    """The best time of one call of each, from rounds of many calls in turns."""
    best = dict.fromkeys(contenders, float("inf"))
    for _ in range(rounds):
        for name, call in contenders.items():
            start = time.perf_counter()
            for _ in range(calls):
                call()
            best[name] = min(best[name], (time.perf_counter() - start) / calls)
    return best


def fixed_cost() -> list[Row]:
    a = kvalo.TimeSeries([0.1 * i for i in range(10)], [float(i) for i in range(10)])
    b = a * 2
    contenders = {
        "a + b": lambda: a + b,
        "a + 1": lambda: a + 1,
        "kvalo.sin(a)": lambda: kvalo.sin(a),
        "kvalo.lowpass(a, 1)": lambda: kvalo.lowpass(a, 1),
    }
    best = seconds(contenders, 20_000)
    return [Row(f"{name} on ten samples", best[name] * 1e6, 1.5, "us") for name in contenders]


def one_clock() -> list[Row]:
    rows = []
    for size in (1_000, 10_000, 100_000, 1_000_000):
        u, v = np.random.default_rng(size).random((2, size))
        a = kvalo.TimeSeries("a")
        a.xdata, a.ydata = kvalo.Array(size), kvalo.Array(size)
        np.asarray(a.xdata)[:] = np.arange(size) * 0.01
        np.asarray(a.ydata)[:] = u
        b = a * 2
        check("a + b", np.array_equal(np.asarray((a + b).ydata), u + u * 2))
        best = seconds({"kvalo": lambda a=a, b=b: a + b, "numpy": lambda u=u, v=v: u + v}, 4_000_000 // size)
        rows.append(
            Row(
                f"a + b on one clock, {size:_} samples, less 1 us / numpy's values".replace("_", " "),
                (best["kvalo"] - 1e-6) / best["numpy"],
                1.3,
                detail=f"{best['kvalo'] * 1e6:.2f} us against {best['numpy'] * 1e6:.2f} us",
            )
        )
    return rows


def benchmark() -> list[Row]:
    return fixed_cost() + one_clock()


if __name__ == "__main__":
    main(benchmark)
