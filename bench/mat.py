"""MAT files: one variable among others, compressed and not, against scipy.io.loadmat."""

from harness import DATA, Row, check, main, measure, ratio

import kvalo  # isort: skip
import numpy as np
import scipy.io

SAMPLES = 4_000_000
FILES = {"compressed": True, "plain": False}


def path_of(form: str) -> str:
    return str(DATA / f"recording_{form}.mat")


def write(form: str) -> None:
    rng = np.random.default_rng(2)
    walk = np.cumsum(rng.integers(-3, 4, SAMPLES)) * 0.01
    variables = {"before": np.arange(SAMPLES) * 0.01, "value": walk, "after": walk * 2}
    scipy.io.savemat(path_of(form), variables, do_compression=FILES[form])


def ours(form: str) -> kvalo.TimeSeries:
    # The first vector is the time of all: loading `before` reads one variable, as the peer does.
    series = kvalo.Container(path=path_of(form)).before
    series.load()
    return series


def theirs(form: str) -> np.ndarray:
    return scipy.io.loadmat(path_of(form), variable_names=["before"])["before"].ravel()


def ours_with_time(form: str) -> kvalo.TimeSeries:
    series = kvalo.Container(path=path_of(form)).value
    series.load()
    return series


def theirs_with_time(form: str) -> list[np.ndarray]:
    found = scipy.io.loadmat(path_of(form), variable_names=["before", "value"])
    return [found["before"].ravel(), found["value"].ravel()]


def benchmark() -> list[Row]:
    rows = []
    for form in FILES:
        print(f"writing {path_of(form)}")
        write(form)
        series = ours_with_time(form)
        check(form, np.array_equal(np.asarray(series.ydata), theirs_with_time(form)[1]))
        del series
        for what, run in {
            "one": (ours, theirs),
            "one and its time": (ours_with_time, theirs_with_time),
        }.items():
            print(f"{form}, {what}")
            times = measure({"kvalo": lambda f=form, r=run: r[0](f), "scipy": lambda f=form, r=run: r[1](f)})
            rows.append(ratio(f"MAT {form}: {what} / scipy.io.loadmat", times, "kvalo", "scipy", 1.1))
    return rows


if __name__ == "__main__":
    main(benchmark)
