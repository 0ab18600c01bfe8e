"""From a recorded flight to a table: load, look, compute, export.

    python examples/first_flight.py [OUTDIR] [--minutes 12]

Makes up a sample flight in OUTDIR, opens its binary log, shows what is in it, reads a few series, computes,
looks in a table of the same flight for what preceded a fault, and exports a choice of series on a common
time grid.
"""

import argparse
import time
from pathlib import Path

import kvalo
import numpy as np
from sample_flight import write_flight


def members(series: kvalo.TimeSeries) -> dict[str, kvalo.TimeSeries]:
    """The fields of a message: series that are attributes of a series."""
    return {name: value for name, value in vars(series).items() if isinstance(value, kvalo.TimeSeries)}


def show_tree(log: kvalo.Container) -> None:
    messages = {name: members(series) for name, series in vars(log).items() if members(series)}
    fields = sum(map(len, messages.values()))
    print(f"  {len(messages)} messages with {fields} fields, among them")
    for name in ("ATT", "BARO", "BAT", "ESC"):
        print(f"    {name:<5} {', '.join(messages[name])}")


def numbers(series: kvalo.TimeSeries) -> tuple[np.ndarray, np.ndarray]:
    """Times and values as arrays that show the samples of the series, without a copy of them."""
    series.load()
    return np.asarray(series.xdata), np.asarray(series.ydata)


def draw(folder: Path, altitude, roll, current, smooth, used) -> list[Path]:
    """A page of four charts, as a picture and as a page that zooms in any browser; returns the files."""
    import kvalo_view

    page = kvalo.new_page("Flight")
    kvalo.set_page(page, 2)
    kvalo.plot(obj=altitude, name="altitude [m]")
    draws = kvalo.plot(obj=current, name="current [A]")
    kvalo.plot(draws, smooth, "smoothed [A]")
    kvalo.plot(draws, used, "charge [mAh]", side="right")
    kvalo.plot(obj=roll, name="roll [deg]")
    kvalo.hist(obj=roll, name="roll [deg]", nbins=40)
    files = [folder / "flight.png", folder / "flight.html"]
    kvalo.selfie(str(files[0]))
    kvalo_view.save_page(files[1])
    return files


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("folder", type=Path, nargs="?", default=Path("demo-output"), metavar="OUTDIR")
    parser.add_argument("--minutes", type=float, default=12.0)
    options = parser.parse_args()

    paths = write_flight(options.folder, minutes=options.minutes, forms=("bin", "csv"))
    path = paths["bin"]
    start = time.perf_counter()
    log = kvalo.Container(path=str(path))
    took = (time.perf_counter() - start) * 1e3
    print(f"Opened {path} ({path.stat().st_size / 1e6:.1f} MB) in {took:.1f} ms")
    show_tree(log)

    roll, altitude, speed, current = log.ATT.Roll, log.BARO.Alt, log.GPS.Spd, log.BAT.Curr
    for series, unit in ((roll, "deg"), (altitude, "m"), (speed, "m/s"), (current, "A")):
        _, y = numbers(series)
        head = f"{series.get_full_name():<10} {len(series):6d} samples at {series.get_fs():5.1f} Hz"
        print(f"  {head}, {y.min():7.1f} to {y.max():.1f} {unit}")

    # The charge drawn from the battery: the current, integrated over time.
    used = kvalo.integral(current)
    t, charge = numbers(used)
    charge /= 3.6  # from ampere seconds to milliampere hours, in place
    print(f"  Charge drawn from the battery: {charge[-1]:.0f} mAh, by {used.get_script()}")

    # How long the battery had to work hard, the short peaks aside.
    smooth = kvalo.lowpass(current, tau=1.0)
    print(f"  Smoothed over a second, the current was above 32 A for {smooth.time_gt(32):.1f} s")

    # The supply of the servo rail reports an overload from time to time. What happened before, each time?
    table = kvalo.Container(path=str(paths["csv"]))
    overload = table.overload
    starts = kvalo.diff(overload) > 0
    print(f"The servo rail was overloaded {starts.sum():.0f} times. What came before, of a table of {table}:")
    kvalo.insight(overload, table)

    exported = options.folder / "flight.csv"
    chosen = [(roll, "roll [deg]"), (altitude, "altitude [m]"), (current, "current [A]")]
    chosen.append((used, "charge [mAh]"))
    kvalo.export_to_file(str(exported), ",", 0.1, float(t[0]), float(t[-1]), chosen)
    lines = exported.read_text().splitlines()
    print(f"Exported {len(lines) - 1} rows every 0.1 s; the first two:")
    print("  " + "\n  ".join(lines[:3]))
    print(f"The table is in {exported.resolve()}")

    for file in draw(options.folder, altitude, roll, current, smooth, used):
        print(f"The charts are in {file.resolve()}")


if __name__ == "__main__":
    main()
