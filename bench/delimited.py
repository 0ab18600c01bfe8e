"""Delimited text: a million rows of a time column and twenty numeric columns."""

import os
import subprocess
import sys
import time

from harness import DATA, Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
import pandas as pd
import polars as pl
import pyarrow.csv as pacsv

ROWS = 1_000_000
COLUMNS = [f"c{k:02d}" for k in range(20)]
PATH = DATA / "million.csv"
MIDDLE = "c10"

# Run in a process of its own, which waits before and after so that the parent can look at it.
LOAD_ALL = f"""
import sys, kvalo
print("ready", flush=True); sys.stdin.readline()
c = kvalo.Container(path={str(PATH)!r})
for name in {COLUMNS!r}: c[name].load()
print("done", flush=True); sys.stdin.readline()
"""


def write_file() -> None:
    random = np.random.default_rng(20)
    t = np.arange(ROWS) * 0.001
    values = [np.sin(t * (0.1 + 0.03 * k)) * 90 + random.normal(0, 1, ROWS) for k in range(len(COLUMNS))]
    line = "%.3f" + ",%.5f" * len(COLUMNS) + "\n"
    partial = PATH.with_suffix(".partial")
    with partial.open("w") as file:
        file.write(",".join(["time", *COLUMNS]) + "\n")
        file.writelines(line % row for row in zip(t.tolist(), *(v.tolist() for v in values), strict=True))
    partial.rename(PATH)


def kvalo_load(names: list[str]) -> kvalo.Container:
    container = kvalo.Container(path=str(PATH))
    for name in names:
        container[name].load()
    return container


def anonymous_kilobytes(pid: int) -> int:
    with open(f"/proc/{pid}/status") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("RssAnon"))


def peak_bytes() -> int:
    """The most anonymous memory that loading every column adds to a process (not the mapped file)."""
    child = subprocess.Popen([sys.executable, "-c", LOAD_ALL], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    child.stdout.readline()
    before = peak = anonymous_kilobytes(child.pid)
    child.stdin.write(b"\n")
    child.stdin.flush()
    os.set_blocking(child.stdout.fileno(), False)
    while not child.stdout.read():
        peak = max(peak, anonymous_kilobytes(child.pid))
        if child.poll() is not None:
            sys.exit("the measured process ended early")
        time.sleep(0.0005)
    peak = max(peak, anonymous_kilobytes(child.pid))
    child.communicate(b"\n")
    return (peak - before) * 1024


def benchmark() -> list[Row]:
    if not PATH.exists():
        print(f"writing {PATH}")
        write_file()
    print(f"{PATH.stat().st_size / 1e6:.0f} MB, {ROWS} rows, {len(COLUMNS)} columns and time")

    expected = pacsv.read_csv(PATH)
    loaded = kvalo_load(COLUMNS)
    for name in COLUMNS:
        y = np.asarray(loaded[name].ydata)
        check(f"values of {name}", np.array_equal(y, expected[name].to_numpy()))
    check("time", np.array_equal(np.asarray(loaded[MIDDLE].xdata), expected["time"].to_numpy()))
    del expected, loaded, y

    print("opening")
    opening = measure(
        {
            "kvalo": lambda: kvalo.Container(path=str(PATH)),
            "pandas": lambda: pd.read_csv(PATH, engine="c"),
        },
        rounds=3,
    )
    print("one column")
    one = measure(
        {
            "kvalo": lambda: kvalo_load([MIDDLE]),
            "pyarrow": lambda: pacsv.read_csv(
                PATH, convert_options=pacsv.ConvertOptions(include_columns=[MIDDLE])
            ),
        },
        rounds=7,
    )
    print("all columns, one after the other")
    everything = measure(
        {
            "kvalo": lambda: kvalo_load(COLUMNS),
            "pandas": lambda: pd.read_csv(PATH, engine="c"),
            "pyarrow": lambda: pacsv.read_csv(PATH),
            "polars": lambda: pl.read_csv(PATH),
        },
        rounds=9,
    )
    faster = min("pyarrow", "polars", key=lambda name: everything[name].best)
    stored = 16 * ROWS * len(COLUMNS)
    peak = peak_bytes()
    print(f"  peak {peak / 1e6:.0f} MB for {stored / 1e6:.0f} MB of samples")
    return [
        ratio("Delimited text: opening / pandas.read_csv", opening, "kvalo", "pandas", 0.02),
        ratio("Delimited text: one column / pyarrow reading that column", one, "kvalo", "pyarrow", 0.6),
        ratio("Delimited text: twenty columns / pandas.read_csv", everything, "kvalo", "pandas", 0.15),
        ratio(
            f"Delimited text: twenty columns / faster of pyarrow and polars ({faster})",
            everything,
            "kvalo",
            faster,
            1.0,
        ),
        Row(
            "Delimited text: peak memory of twenty columns / 16 bytes a sample",
            peak / stored,
            1.2,
            detail=f"{peak / 1e6:.0f} MB anonymous memory at the peak",
        ),
    ]


if __name__ == "__main__":
    main(benchmark)
