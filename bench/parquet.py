"""Parquet: one column of a table of 20 columns and ten million rows, snappy, several row groups."""

from harness import DATA, Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
import pyarrow as pa
import pyarrow.parquet as pq

PATH = DATA / "table.parquet"
ROWS, COLUMNS, GROUP = 10_000_000, 20, 1 << 20


def write_table() -> None:
    print(f"writing {PATH}")
    rng = np.random.default_rng(1)
    schema = pa.schema([("time", pa.float64())] + [(f"c{k}", pa.float64()) for k in range(1, COLUMNS)])
    with pq.ParquetWriter(PATH, schema, compression="snappy") as file:
        for first in range(0, ROWS, GROUP):
            n = min(GROUP, ROWS - first)
            columns = [np.arange(first, first + n) * 0.01]
            columns += [np.cumsum(rng.normal(size=n)) for _ in range(1, COLUMNS)]
            file.write_table(pa.Table.from_arrays([pa.array(c) for c in columns], schema=schema))


def with_pyarrow(column: str) -> np.ndarray:
    return pq.read_table(PATH, columns=[column])[column].to_numpy()


def opened(column: str) -> kvalo.TimeSeries:
    series = kvalo.Container(path=str(PATH))[column]
    series.load()
    return series


def benchmark() -> list[Row]:
    if not PATH.exists():
        write_table()
    print(f"{PATH.stat().st_size / 1e6:.0f} MB")
    series = opened("c7")
    check("times", np.array_equal(np.asarray(series.xdata), with_pyarrow("time")))
    check("values", np.array_equal(np.asarray(series.ydata), with_pyarrow("c7")))
    del series

    print("opening the file and loading one column, its time included")
    first = measure({"kvalo": lambda: opened("c7"), "pyarrow": lambda: with_pyarrow("c7")}, rounds=9)
    container = kvalo.Container(path=str(PATH))
    names = [name for name, value in vars(container).items() if isinstance(value, kvalo.TimeSeries)]
    todo = {"kvalo": iter(names), "pyarrow": iter(names)}
    for name in (names[-1], names[-2]):
        container[name].load()  # the time column is kept from the second use on

    def next_column() -> None:
        container[next(todo["kvalo"])].load()

    print("one column after the other")
    later = measure({"kvalo": next_column, "pyarrow": lambda: with_pyarrow(next(todo["pyarrow"]))}, rounds=9)
    return [
        ratio(
            "Parquet: one column with its time, file just opened / pyarrow, without time",
            first,
            "kvalo",
            "pyarrow",
            1.1,
        ),
        ratio(
            "Parquet: a further column with its time / pyarrow, without time", later, "kvalo", "pyarrow", 1.1
        ),
    ]


if __name__ == "__main__":
    main(benchmark)
