"""What a chart of many samples costs: the pyramid, the first view, every further one.

The peer is tsdownsample's M4, which looks at all samples for every view.
"""

import ctypes
import subprocess
import time

from harness import CORES, ROOT, Row, check, main, measure, ratio

import numpy as np  # isort: skip
from tsdownsample import M4Downsampler

WIDTH = 1600


def kernels() -> ctypes.CDLL:
    build = ROOT / "build" / "release"
    subprocess.run(
        ["cmake", "--build", build, "--target", "view_bench"], check=True, stdout=subprocess.DEVNULL
    )
    library = ctypes.CDLL(str(build / "tests" / "view" / "libview_bench.so"))
    pointer, size, double = ctypes.c_void_p, ctypes.c_size_t, ctypes.c_double
    library.view_build.restype = pointer
    library.view_build.argtypes = [pointer, pointer, size]
    library.view_free.argtypes = [pointer]
    library.view_memory.restype = size
    library.view_memory.argtypes = [pointer]
    library.view_columns.argtypes = [pointer, double, double, size, pointer]
    library.view_columns.restype = library.view_free.restype = None
    return library


def samples(n: int) -> tuple[np.ndarray, np.ndarray]:
    """Stamps with irregular steps and a random walk with spikes."""
    random = np.random.default_rng(1)
    x = np.cumsum(random.random(n) + 0.01)
    y = np.cumsum(random.standard_normal(n))
    y[random.integers(0, n, 50)] += 1e4
    return x, y


class Viewed:
    """Samples with their pyramid."""

    def __init__(self, library: ctypes.CDLL, x: np.ndarray, y: np.ndarray):
        self.library, self.x, self.y = library, x, y
        self.columns = np.empty((WIDTH, 4))
        self.held = library.view_build(x.ctypes.data, y.ctypes.data, len(x))

    def __del__(self):
        self.library.view_free(self.held)

    def view(self, lo: float, hi: float) -> np.ndarray:
        self.library.view_columns(self.held, lo, hi, WIDTH, self.columns.ctypes.data)
        return self.columns

    def memory(self) -> int:
        return self.library.view_memory(self.held)


def whole(viewed: Viewed) -> np.ndarray:
    return viewed.view(viewed.x[0], viewed.x[-1])


def views_95(viewed: Viewed, rounds: int = 300) -> tuple[float, float]:
    """Views at random places, from all of it to a thousandth: the 95th percentiles of time and processor time."""
    random = np.random.default_rng(2)
    taken = []
    worked = []
    first, last = viewed.x[0], viewed.x[-1]
    for _ in range(rounds):
        length = (last - first) * 10 ** -random.uniform(0, 3)
        lo = first + random.random() * (last - first - length)
        start, work = time.perf_counter(), time.process_time()
        viewed.view(lo, lo + length)
        worked.append(time.process_time() - work)
        taken.append(time.perf_counter() - start)
    return float(np.percentile(taken, 95)), float(np.percentile(worked, 95))


def benchmark() -> list[Row]:
    library = kernels()
    rows = []
    x, y = samples(10_000_000)
    viewed = Viewed(library, x, y)
    found = whole(viewed)
    edges = np.searchsorted(x, np.linspace(x[0], x[-1], WIDTH + 1)[1:-1])
    check("least", np.array_equal(found[:, 1], np.minimum.reduceat(y, np.r_[0, edges])))
    check("greatest", np.array_equal(found[:, 2], np.maximum.reduceat(y, np.r_[0, edges])))
    rows.append(Row("pyramid, share of the samples' memory", viewed.memory() / (16 * len(x)), 0.025, "of it"))

    m4 = M4Downsampler()
    copy_x, copy_y = np.empty_like(x), np.empty_like(y)

    def copy() -> None:
        np.copyto(copy_x, x)
        np.copyto(copy_y, y)

    print("10,000,000 samples, irregular stamps, 1600 columns")
    timings = measure(
        {
            "pyramid and first view": lambda: whole(Viewed(library, x, y)).copy(),
            "pyramid": lambda: Viewed(library, x, y),
            "further view": lambda: whole(viewed),
            "tsdownsample M4": lambda: m4.downsample(x, y, n_out=4 * WIDTH, parallel=len(CORES) > 1),
            "copy of x and y": copy,
        },
        rounds=15,
    )
    rows.append(
        ratio("pyramid and first view of 1e7", timings, "pyramid and first view", "tsdownsample M4", 1.0)
    )
    rows.append(ratio("further view of 1e7", timings, "further view", "tsdownsample M4", 0.2))
    rows.append(ratio("pyramid of 1e7", timings, "pyramid", "copy of x and y", 1.0))
    del viewed

    x, y = samples(100_000_000)
    print("100,000,000 samples")
    timings = measure({"pyramid": lambda: Viewed(library, x, y)}, rounds=3)
    viewed = Viewed(library, x, y)
    taken, worked = views_95(viewed)
    rows.append(
        Row("views of 1e8, 95th percentile", taken * 1e3, 5, "ms", f"{worked * 1e3:.1f} ms of processor time")
    )
    rows.append(Row("pyramid of 1e8", timings["pyramid"].best * 1e3, 400, "ms"))
    return rows


if __name__ == "__main__":
    main(benchmark)
