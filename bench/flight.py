"""Binary flight logs: a hundred megabytes of generated flight."""

import subprocess
import sys

from harness import DATA, ROOT, Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
from pymavlink.DFReader import DFReader_binary

PATH = DATA / "flight" / "sample_flight.bin"
MEGABYTES = 100


def groups(container: kvalo.Container) -> dict[str, dict[str, kvalo.TimeSeries]]:
    """Message name -> field name -> series; a message is a series that has members."""
    found = {}
    for name, series in vars(container).items():
        members = {k: v for k, v in vars(series).items() if isinstance(v, kvalo.TimeSeries)}
        if members:
            found[name] = members
    return found


def open_log() -> kvalo.Container:
    return kvalo.Container(path=str(PATH))


def load_everything() -> kvalo.Container:
    container = open_log()
    for members in groups(container).values():
        for series in members.values():
            try:
                series.load()
            except Exception as error:
                if "empty" not in str(error):  # a message that is declared but never recorded
                    raise
    return container


def walk(message: str, field: str) -> tuple[list[float], list[float]]:
    log = DFReader_binary(str(PATH), zero_time_base=True)
    x, y = [], []
    while (m := log.recv_match(type=message)) is not None:
        x.append(m.TimeUS * 1e-6)
        y.append(getattr(m, field))
    log.close()
    return x, y


def benchmark() -> list[Row]:
    if not PATH.exists():
        print(f"writing {PATH}")
        generator = [sys.executable, str(ROOT / "examples" / "sample_flight.py"), str(PATH.parent)]
        subprocess.run([*generator, "--forms", "bin", "--megabytes", str(MEGABYTES)], check=True)
    size = PATH.stat().st_size
    print(f"{size / 1e6:.0f} MB")

    # The message with most samples, and its first field that the peer gives as a plain number.
    container = load_everything()
    counts = {name: max(map(len, members.values())) for name, members in groups(container).items()}
    message = max(counts, key=counts.get)
    field = list(groups(container)[message])[-1]
    x, y = walk(message, field)
    series = groups(container)[message][field]
    check(f"times of {message}.{field}", np.allclose(np.asarray(series.xdata), x, rtol=0, atol=1e-9))
    check(f"values of {message}.{field}", np.allclose(np.asarray(series.ydata), y, rtol=1e-6, equal_nan=True))
    samples = sum(len(s) for members in groups(container).values() for s in members.values())
    print(f"{message}.{field}: {len(y)} samples; all fields: {samples} samples")
    del container, series, x, y

    opening = measure({"kvalo": open_log}, rounds=9)
    print("one field")

    def one_field() -> kvalo.TimeSeries:
        series = groups(open_log())[message][field]
        series.load()
        return series

    one = measure({"kvalo": one_field, "pymavlink": lambda: walk(message, field)}, rounds=3)
    print("all fields, one after the other")
    everything = measure({"kvalo": load_everything, "open().read()": lambda: PATH.read_bytes()}, rounds=7)
    return [
        Row("Flight log of 100 MB: opening", opening["kvalo"].best * 1e3, 5.0, unit="ms"),
        ratio("Flight log: one field / pymavlink walking that message", one, "kvalo", "pymavlink", 0.02),
        ratio("Flight log: all fields / reading the file's bytes", everything, "kvalo", "open().read()", 4.0),
    ]


if __name__ == "__main__":
    main(benchmark)
