"""What the benchmarks share: the same two cores for everyone, interleaved rounds, a table of ratios.

Import this before any contender: it pins the process and sets the thread counts that libraries read when
they are loaded. A benchmark first checks that all contenders agree, then measures them in turns, so that
whatever else the machine does hits everyone alike. The figure of a contender is its best round; the median
and the first round are printed beside it as a hint how calm the machine was. No time is ever asserted.
"""

import gc
import json
import os
import platform
import statistics
import sys
import tempfile
import time
from collections.abc import Callable
from dataclasses import asdict, dataclass
from importlib.metadata import PackageNotFoundError, version
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DATA = ROOT / "build" / "bench-data"
RESULTS = ROOT / "build" / "bench-results"
PEERS = ("numpy", "pandas", "polars", "pyarrow", "scipy", "h5py", "openpyxl", "pymavlink")

CORES = sorted(os.sched_getaffinity(0))[:2]
os.sched_setaffinity(0, CORES)
for _variable in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "POLARS_MAX_THREADS", "ARROW_IO_THREADS"):
    os.environ[_variable] = str(len(CORES))
_home = tempfile.TemporaryDirectory(prefix="kvalo-bench-")
os.environ["KVALO_HOME"] = _home.name
DATA.mkdir(parents=True, exist_ok=True)


def environment() -> list[str]:
    cpu = platform.machine()
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            cpu = line.split(":", 1)[1].strip()
            break
    versions = []
    for name in PEERS:
        try:
            versions.append(f"{name} {version(name)}")
        except PackageNotFoundError:
            versions.append(f"{name} missing")
    load = os.getloadavg()[0]
    return [
        f"{cpu}, {len(CORES)} of {os.cpu_count()} cores, {platform.system()} {platform.release()}",
        f"Python {platform.python_version()}, {', '.join(versions)}",
        f"load of the machine at the start {load:.2f}" + (" - NOT IDLE" if load > 0.7 else ""),
    ]


@dataclass
class Row:
    """One line of the result: a figure against its target (both ratios unless the unit says otherwise)."""

    question: str
    figure: float
    target: float
    unit: str = "x"
    detail: str = ""

    @property
    def verdict(self) -> str:
        return "pass" if self.figure <= self.target else "miss"

    def cells(self) -> tuple[str, str, str, str]:
        unit = "" if self.unit == "x" else f" {self.unit}"
        return self.question, f"{self.figure:.3g}{unit}", f"<= {self.target:g}{unit}", self.verdict


@dataclass
class Timing:
    best: float
    median: float
    first: float  # with whatever is still cold: memory from the system, caches of the processor

    def __str__(self) -> str:
        times = {"best": self.best, "median": self.median, "first": self.first}
        return ", ".join(f"{name} {seconds * 1e3:.1f} ms" for name, seconds in times.items())


def measure(contenders: dict[str, Callable[[], object]], rounds: int = 5) -> dict[str, Timing]:
    """Runs the contenders in turns and prints what each took; results are thrown away between turns."""
    taken: dict[str, list[float]] = {name: [] for name in contenders}
    for _ in range(rounds):
        for name, run in contenders.items():
            gc.collect()
            start = time.perf_counter()
            result = run()
            taken[name].append(time.perf_counter() - start)
            del result
    timings = {name: Timing(min(times), statistics.median(times), times[0]) for name, times in taken.items()}
    width = max(map(len, timings))
    for name, timing in timings.items():
        print(f"  {name:<{width}}  {timing}")
    return timings


def ratio(question: str, timings: dict[str, Timing], ours: str, theirs: str, target: float) -> Row:
    detail = f"{timings[ours].best * 1e3:.1f} ms against {timings[theirs].best * 1e3:.1f} ms ({theirs})"
    return Row(question, timings[ours].best / timings[theirs].best, target, detail=detail)


def check(what: str, agrees: bool) -> None:
    """Ends the benchmark when the contenders did not do the same work."""
    if not agrees:
        sys.exit(f"the contenders disagree: {what}; nothing was measured")


def table(rows: list[Row]) -> str:
    head = ("Question", "Measured", "Target", "")
    cells = [head, *(row.cells() for row in rows)]
    widths = [max(len(line[i]) for line in cells) for i in range(len(head))]
    return "\n".join(
        "  ".join(c.ljust(w) for c, w in zip(line, widths, strict=True)).rstrip() for line in cells
    )


def main(benchmark: Callable[[], list[Row]]) -> None:
    """Runs one benchmark file: prints its surroundings and table, and keeps the rows for the report."""
    name = Path(sys.argv[0]).stem
    surroundings = environment()
    print("\n".join(surroundings))
    rows = benchmark()
    print()
    print(table(rows))
    RESULTS.mkdir(parents=True, exist_ok=True)
    kept = {"surroundings": surroundings, "rows": [asdict(row) for row in rows]}
    (RESULTS / f"{name}.json").write_text(json.dumps(kept, indent=1))
