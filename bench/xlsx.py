"""A workbook of a million cells: opening it and loading every column, against openpyxl's read-only mode."""

import kvalo
import numpy as np
import openpyxl
from harness import DATA, Row, check, main, measure, ratio

ROWS, COLUMNS = 100_000, 10
WORKBOOK = DATA / f"cells_{ROWS}x{COLUMNS}.xlsx"


def write_workbook() -> None:
    book = openpyxl.Workbook(write_only=True)
    sheet = book.create_sheet("log")
    sheet.append(["time", *(f"c{i}" for i in range(COLUMNS - 1))])
    values = np.random.default_rng(1).normal(size=(ROWS, COLUMNS)) * 100
    values[:, 0] = np.arange(ROWS) / 100
    values[:, 1:5] = values[:, 1:5].round(3)
    for row in values.tolist():
        sheet.append(row)
    book.save(WORKBOOK)


def with_kvalo() -> kvalo.Container:
    container = kvalo.Container(path=str(WORKBOOK))
    for series in container.__dict__.values():
        series.load()
    return container


def with_openpyxl() -> np.ndarray:
    book = openpyxl.load_workbook(WORKBOOK, read_only=True)
    rows = book.active.iter_rows(min_row=2, values_only=True)
    return np.array(list(rows), float)


def benchmark() -> list[Row]:
    if not WORKBOOK.exists():
        write_workbook()
    ours, theirs = with_kvalo(), with_openpyxl()
    for i in range(COLUMNS - 1):
        series = ours[f"c{i}"]
        check("times", np.array_equal(np.asarray(series.xdata), theirs[:, 0]))
        check(f"column {i}", np.array_equal(np.asarray(series.ydata), theirs[:, i + 1]))
    timings = measure({"kvalo": with_kvalo, "openpyxl": with_openpyxl}, 3)
    speed = ROWS * COLUMNS / timings["kvalo"].best / 1e6
    row = ratio("load a workbook of 1e6 cells against openpyxl", timings, "kvalo", "openpyxl", 0.1)
    row.detail += f", {speed:.1f} million cells a second"
    return [row]


if __name__ == "__main__":
    main(benchmark)
