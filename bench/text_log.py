"""Text flight logs: a hundred megabytes of generated flight."""

import subprocess
import sys

from harness import DATA, ROOT, Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
from pymavlink.DFReader import DFReader_text

PATH = DATA / "flight" / "sample_flight.log"
MEGABYTES = 55  # of the same flight in the binary form
MESSAGE, FIELD = "IMU", "AccZ"


def open_log() -> kvalo.Container:
    return kvalo.Container(path=str(PATH))


def one_field() -> kvalo.TimeSeries:
    series = vars(open_log()[MESSAGE])[FIELD]
    series.load()
    return series


def load_everything() -> tuple[kvalo.Container, int]:
    container, samples = open_log(), 0
    for group in vars(container).values():
        for series in vars(group).values():
            if not isinstance(series, kvalo.TimeSeries):
                continue
            try:
                series.load()
                samples += len(series)
            except Exception as error:
                if "empty" not in str(error):  # a message that is declared but never recorded
                    raise
    return container, samples


def walk() -> tuple[list[float], list[float]]:
    log = DFReader_text(str(PATH), zero_time_base=True)
    x, y = [], []
    while (m := log.recv_match(type=MESSAGE)) is not None:
        x.append(m.TimeUS * 1e-6)
        y.append(getattr(m, FIELD))
    return x, y


def benchmark() -> list[Row]:
    if not PATH.exists():
        print(f"writing {PATH}")
        generator = [sys.executable, str(ROOT / "examples" / "sample_flight.py"), str(PATH.parent)]
        subprocess.run([*generator, "--forms", "log", "--megabytes", str(MEGABYTES)], check=True)
    print(f"{PATH.stat().st_size / 1e6:.0f} MB")

    x, y = walk()
    series = one_field()
    check(f"times of {MESSAGE}.{FIELD}", np.allclose(np.asarray(series.xdata), x, rtol=0, atol=1e-9))
    check(f"values of {MESSAGE}.{FIELD}", np.allclose(np.asarray(series.ydata), y, rtol=1e-12))
    print(f"{MESSAGE}.{FIELD}: {len(y)} samples; all fields: {load_everything()[1]} samples")
    del series, x, y

    opening = measure({"kvalo": open_log}, rounds=9)
    print("one field")
    one = measure({"kvalo": one_field, "pymavlink": walk}, rounds=3)
    print("all fields, one after the other")
    everything = measure({"kvalo": load_everything, "open().read()": lambda: PATH.read_bytes()}, rounds=5)
    both = {"kvalo": everything["kvalo"], "pymavlink": one["pymavlink"]}
    return [
        Row("Text flight log of 100 MB: opening", opening["kvalo"].best * 1e3, 5.0, unit="ms"),
        ratio("Text flight log: one field / pymavlink walking that message", one, "kvalo", "pymavlink", 0.03),
        ratio("Text flight log: all fields / pymavlink, one field", both, "kvalo", "pymavlink", 0.5),
    ]


if __name__ == "__main__":
    main(benchmark)
