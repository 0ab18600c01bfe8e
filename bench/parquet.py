"""Parquet: one column of a table of 20 columns and ten million rows, snappy, several row groups.

A variable is a column with its times, so the first load of a file decodes two columns. One table has times as a
recorder writes them, with jitter; in the other they are an even ramp, which snappy takes several times as long to
unpack as any other column, so there the peer is asked for both columns, too.
"""

from pathlib import Path

from harness import DATA, Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
import pyarrow as pa
import pyarrow.parquet as pq

PATH = DATA / "table.parquet"
JITTERED = DATA / "jittered.parquet"
ROWS, COLUMNS, GROUP = 10_000_000, 20, 1 << 20


def write_table(path: Path, names: list[str], jitter: float = 0.0) -> None:
    print(f"writing {path}")
    rng = np.random.default_rng(1)
    schema = pa.schema([(name, pa.float64()) for name in names])
    with pq.ParquetWriter(path, schema, compression="snappy") as file:
        for first in range(0, ROWS, GROUP):
            n = min(GROUP, ROWS - first)
            columns = [np.cumsum(rng.normal(size=n)) for _ in names]
            columns[0] = np.arange(first, first + n) * 0.01
            if jitter:
                columns[0] += rng.uniform(0, jitter, n)
            file.write_table(pa.Table.from_arrays([pa.array(c) for c in columns], schema=schema))


def with_pyarrow(*columns: str, path: Path = PATH) -> list[np.ndarray]:
    table = pq.read_table(path, columns=list(columns))
    return [column.to_numpy() for column in table.columns]


def opened(column: str, path: Path = PATH) -> kvalo.TimeSeries:
    series = kvalo.Container(path=str(path))[column]
    series.load()
    return series


def benchmark() -> list[Row]:
    if not PATH.exists():
        write_table(PATH, ["time", *(f"c{k}" for k in range(1, COLUMNS))])
    if not JITTERED.exists():
        write_table(JITTERED, ["time", "c1", "c2"], jitter=0.005)
    print(f"{PATH.stat().st_size / 1e6:.0f} MB")
    series = opened("c7")
    check("times", np.array_equal(np.asarray(series.xdata), with_pyarrow("time")[0]))
    check("values", np.array_equal(np.asarray(series.ydata), with_pyarrow("c7")[0]))
    del series

    print("opening the file and loading one column, to which its time belongs")
    first = measure(
        {
            "kvalo": lambda: opened("c7"),
            "column": lambda: with_pyarrow("c7"),
            "column and time": lambda: with_pyarrow("time", "c7"),
        },
        rounds=15,
    )
    print("one column after the other")
    names = iter([f"c{k}" for k in range(3, COLUMNS)])
    container = kvalo.Container(path=str(PATH))
    for name in ("c1", "c2"):
        container[name].load()  # the time column is kept from the second use on
    freed = [opened(f"c{k}") for k in range(1, 6)]
    del freed  # memory is there to be used again, as it is for the peer, which drops what it read
    later = measure(
        {"kvalo": lambda: container[next(names)].load(), "column": lambda: with_pyarrow("c2")}, rounds=4
    )
    print("opening the file and loading one column, with times that jitter")
    jittered = measure(
        {"kvalo": lambda: opened("c2", JITTERED), "column": lambda: with_pyarrow("c2", path=JITTERED)},
        rounds=7,
    )
    return [
        ratio(
            "Parquet: file just opened, times that jitter / pyarrow, column", jittered, "kvalo", "column", 1.1
        ),
        ratio(
            "Parquet: file just opened, times an even ramp / pyarrow, both",
            first,
            "kvalo",
            "column and time",
            1.1,
        ),
        ratio(
            "Parquet: file just opened, times an even ramp / pyarrow, column", first, "kvalo", "column", 1.1
        ),
        ratio("Parquet: a further column and its time / pyarrow, column", later, "kvalo", "column", 1.1),
    ]


if __name__ == "__main__":
    main(benchmark)
