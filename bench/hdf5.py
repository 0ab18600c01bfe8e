"""HDF5: one variable of a long recording, and all columns of a packed matrix, against h5py."""

from harness import DATA, Row, check, main, measure, ratio

import kvalo  # isort: skip
import h5py
import numpy as np

PATH = DATA / "recording.h5"
SAMPLES = 4_000_000
COLUMNS = 8
PACKED = {"chunks": True, "compression": "gzip"}


def write() -> None:
    rng = np.random.default_rng(1)
    walk = np.cumsum(rng.integers(-3, 4, SAMPLES)) * 0.01
    with h5py.File(PATH, "w") as file:
        for name, options in {"packed": PACKED, "shuffled": {**PACKED, "shuffle": True}, "plain": {}}.items():
            file.create_dataset(f"{name}/time", data=np.arange(SAMPLES) * 0.01, **options)
            file.create_dataset(f"{name}/value", data=walk, **options)
            file.create_dataset(f"{name}/single", data=walk.astype("f4"), **options)
        file.create_dataset("alone/value", data=walk, **PACKED)
        matrix = walk.reshape(-1, COLUMNS)
        matrix[:, 0] = np.arange(len(matrix))
        file.create_dataset("table/m", data=matrix, **PACKED)


def ours(group: str, name: str) -> kvalo.TimeSeries:
    container = kvalo.Container(path=str(PATH))
    series = vars(vars(container)[group])[name]
    series.load()
    return series


def theirs(group: str, name: str) -> tuple[np.ndarray, np.ndarray]:
    """The samples as a series holds them: doubles, and the time that belongs to them."""
    with h5py.File(PATH) as file:
        y = file[group][name].astype("f8")[:]
        x = file[group]["time"][:] if "time" in file[group] else np.arange(len(y), dtype=float)
    return x, y


def all_columns() -> list[kvalo.TimeSeries]:
    container = kvalo.Container(path=str(PATH))
    columns = [s for s in vars(container.table.m).values() if isinstance(s, kvalo.TimeSeries)]
    for series in columns:
        series.load()
    return columns


def all_columns_h5py() -> list[np.ndarray]:
    with h5py.File(PATH) as file:
        matrix = file["table/m"][:]
    return [np.ascontiguousarray(column) for column in matrix.T]


def benchmark() -> list[Row]:
    if not PATH.exists():
        print(f"writing {PATH}")
        write()
    rows = []
    for group in ("alone", "packed", "shuffled", "plain"):
        for name in ("value", "single") if group != "alone" else ("value",):
            series, (_, y) = ours(group, name), theirs(group, name)
            check(f"{group}/{name}", np.array_equal(np.asarray(series.ydata), y))
            del series, y
            print(f"{group}/{name}")
            times = measure(
                {"kvalo": lambda g=group, n=name: ours(g, n), "h5py": lambda g=group, n=name: theirs(g, n)}
            )
            rows.append(
                ratio(f"HDF5 {group}, {name} and its time: open and load / h5py", times, "kvalo", "h5py", 1.1)
            )
    check(
        "columns", all(map(np.array_equal, [np.asarray(s.ydata) for s in all_columns()], all_columns_h5py()))
    )
    print("all columns of a packed matrix")
    times = measure({"kvalo": all_columns, "h5py": all_columns_h5py})
    rows.append(ratio("HDF5 packed matrix: all columns / h5py in one read", times, "kvalo", "h5py", 1.5))
    return rows


if __name__ == "__main__":
    main(benchmark)
