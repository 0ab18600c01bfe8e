"""Precursors of a hundred events in a container of 500 series with 100 000 samples each."""

import contextlib
import io
import resource
import time

from harness import DATA, Row, check, main

import kvalo  # isort: skip
import numpy as np

SERIES, ROWS, EVENTS, WINDOW = 500, 100_000, 100, 8.0
STEP = 0.01
PERIOD = ROWS // EVENTS  # rows from one event to the next


def levels(random: np.random.Generator) -> np.ndarray:
    """One digit a cell. A third of the signals repeat with the events, a third nearly do, a third are noise."""
    cells = random.integers(0, 10, (ROWS, SERIES), dtype=np.uint8)
    repeated = np.repeat(random.integers(0, 10, (PERIOD // 25, SERIES), dtype=np.uint8), 25, axis=0)
    cells[:, 0::3] = np.tile(repeated, (EVENTS, 1))[:, 0::3]
    cells[:, 1::3] = np.tile(repeated, (EVENTS, 1))[:, 1::3]
    cells[ROWS // 2 :, 1::3] = (cells[ROWS // 2 :, 1::3] + 1) % 10
    cells[:, 0] = 0
    cells[PERIOD - 1 :: PERIOD, 0] = 1  # the event
    return cells


def write(path, cells: np.ndarray) -> None:
    """The file as one array of characters: a time of nine digits, and a comma before every cell."""
    ticks = (
        np.array([b"%09.2f" % (i * STEP) for i in range(ROWS)], dtype="S9").view(np.uint8).reshape(ROWS, 9)
    )
    text = np.full((ROWS, 9 + 2 * SERIES + 1), ord(","), dtype=np.uint8)
    text[:, :9] = ticks
    text[:, 10:-1:2] = cells + ord("0")
    text[:, -1] = ord("\n")
    with open(path, "wb") as file:
        file.write((",".join(["t", *(f"s{k:03d}" for k in range(SERIES))]) + "\n").encode())
        file.write(text.tobytes())


def by_the_rule(name: str, s: np.ndarray, v: np.ndarray, e: np.ndarray) -> list[str]:
    """The findings of one series, every candidate looked up again at every event."""
    found = []
    last = len(s) - 1
    i0 = min(np.searchsorted(s, e[0]), last)
    for k in range(1, i0 + 1):
        j = i0 - k
        d = e[0] - s[j]
        if d >= WINDOW:
            break
        h, after = v[j], v[j + 1]
        if h == after:
            continue
        at = np.minimum(np.searchsorted(s, e[1:] - d), last)
        a, b = v[at], v[np.minimum(at + 1, last)]
        met = (at < last) & ((h > b) & (a >= h) if h > after else (b > h) & (h >= a))
        ends = e[1:] - s[at] >= WINDOW
        stop = np.argmax(ends) if ends.any() else len(at)
        if met[:stop].all():
            if stop < len(at):
                break
            change = "decreased to below" if h > after else "increased to above"
            found.append(f"{name}, {d:g} seconds before every occurrence, {change} {h:g}.")
    return found


def cpu_seconds() -> float:
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return usage.ru_utime + usage.ru_stime


def benchmark() -> list[Row]:
    cells = levels(np.random.default_rng(21))
    path = DATA / "insight.csv"
    write(path, cells)
    pool = kvalo.Container(path=str(path))
    event = pool["s000"]
    names = [f"s{k:03d}" for k in range(SERIES)]
    for name in names:
        pool[name].load()

    def with_kvalo() -> list[str]:
        told = io.StringIO()
        with contextlib.redirect_stdout(told):
            kvalo.insight(event, pool, WINDOW)
        return told.getvalue().splitlines()

    s = np.asarray(event.xdata)
    e = s[1:][(cells[:-1, 0] == 0) & (cells[1:, 0] != 0)]
    check("number of events", len(e) == EVENTS)
    told = with_kvalo()
    expected = [line for name in names[1:] for line in by_the_rule(name, s, np.asarray(pool[name].ydata), e)]
    check("findings", told == expected)

    taken = []
    for _ in range(3):
        wall, cpu = time.perf_counter(), cpu_seconds()
        with_kvalo()
        taken.append((cpu_seconds() - cpu, time.perf_counter() - wall))
        print(f"  kvalo  {taken[-1][0] * 1e3:.1f} ms of one core, {taken[-1][1] * 1e3:.1f} ms")
    path.unlink()
    detail = f"{len(told)} findings told"
    question = "Insight: 500 series, 100 000 samples, 100 events"
    return [Row(question, min(cpu for cpu, _ in taken), 1.0, "s of one core", detail)]


if __name__ == "__main__":
    main(benchmark)
