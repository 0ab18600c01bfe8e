"""Export of twenty series with a million rows on a common time grid."""

from harness import DATA, Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
import pandas as pd
import pyarrow.csv as pacsv

ROWS = 1_000_000
# A power of two: the grid then meets the time stamps exactly, however often the step is added.
STEP = 1 / 1024
COLUMNS = [f"c{k:02d}" for k in range(20)]


def benchmark() -> list[Row]:
    random = np.random.default_rng(21)
    t = np.arange(ROWS) * STEP
    frame = pd.DataFrame({"Time": t} | {name: random.normal(0, 100, ROWS) for name in COLUMNS})
    stamps = t.tolist()
    selection = [(kvalo.TimeSeries(stamps, frame[name].tolist()), name) for name in COLUMNS]
    ours, theirs = DATA / "export-kvalo.csv", DATA / "export-pandas.csv"

    def with_kvalo() -> None:
        kvalo.export_to_file(str(ours), ",", STEP, 0.0, float(t[-1]), selection)

    def with_pandas() -> None:
        frame.to_csv(theirs, index=False, float_format="%.6f")

    with_kvalo()
    with_pandas()
    a, b = pacsv.read_csv(ours), pacsv.read_csv(theirs)
    check("columns", a.column_names == b.column_names)
    for name in COLUMNS:
        check(f"values of {name}", np.array_equal(a[name].to_numpy(), b[name].to_numpy()))
    del a, b

    timings = measure({"kvalo": with_kvalo, "pandas": with_pandas}, rounds=3)
    ours.unlink()
    theirs.unlink()
    return [ratio("Export: twenty series, a million rows / pandas to_csv", timings, "kvalo", "pandas", 0.1)]


if __name__ == "__main__":
    main(benchmark)
