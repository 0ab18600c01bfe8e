"""The words that the tests are written in: tables of cases, small files, samples, threads."""

import os
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import kvalo
import numpy as np
import pytest

TABLE = "t,a\n0,1\n1,2\n2,3\n"

# Whether this runs under the address or the thread sanitizer.
SANITIZED = "san.so" in os.environ.get("LD_PRELOAD", "")


def cases(names: str, *rows):
    """Runs a test once for each row, which holds the arguments of these names."""
    return pytest.mark.parametrize(names, rows)


def write(path: Path, content=TABLE) -> str:
    path.write_bytes(content if isinstance(content, bytes) else content.encode())
    return str(path)


def opened(path: Path, content=TABLE) -> kvalo.Container:
    """A container of a file that is written first."""
    return kvalo.Container(path=write(path, content))


def table_file(folder, kind, rows=5000):
    """Two variables a and b = -a over the times i / 8."""
    t, a = np.arange(rows) / 8, np.arange(rows) % 100.0
    path = folder / f"table.{kind}"
    frame = {"time": t, "a": a, "b": -a}
    match kind:
        case "csv":
            path.write_text("t,a,b\n" + "".join(f"{x},{y},{-y}\n" for x, y in zip(t, a, strict=True)))
        case "parquet":
            pytest.importorskip("pyarrow.parquet").write_table(
                pytest.importorskip("pyarrow").table(frame), path
            )
        case "h5":
            with pytest.importorskip("h5py").File(path, "w") as file:
                file.update(frame)
        case "mat":
            pytest.importorskip("scipy.io").savemat(path, frame)
        case "xlsx":
            book = pytest.importorskip("openpyxl").Workbook()
            for row in (list(frame), *zip(*frame.values(), strict=True)):
                book.active.append(row)
            book.save(path)
    return str(path)


def refused(match: str, **arguments):
    """A container with these arguments must fail with this message."""
    with pytest.raises(Exception, match=match):
        kvalo.Container(**arguments)


def series(y, x=None) -> kvalo.TimeSeries:
    """Samples at the times 0, 1, 2, ... or at others."""
    y = np.asarray(y, float).tolist()
    return kvalo.TimeSeries(list(range(len(y))) if x is None else np.asarray(x, float).tolist(), y)


def xs(ts: kvalo.TimeSeries) -> list[float]:
    return ts.xdata.to_list()


def ys(ts: kvalo.TimeSeries) -> list[float]:
    return ts.ydata.to_list()


def samples(ts: kvalo.TimeSeries) -> tuple[list[float], list[float]]:
    """Times and values, loaded if need be."""
    ts.load()
    return xs(ts), ys(ts)


def in_threads(work, *arguments) -> list:
    """What the work gives for each of the arguments, all done at once."""
    with ThreadPoolExecutor(len(arguments)) as pool:
        return list(pool.map(work, arguments))
