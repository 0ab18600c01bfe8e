"""Places and texts of ticks on time axes, in the formats of kvalo.set("timeformat", ...). Times are UTC."""

import datetime
import math

from matplotlib.ticker import Formatter, Locator, MaxNLocator

DAY = 86400
CLOCK_STEPS = (1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, DAY)
UNIX_TIMES = (1e8, 1e11)  # what "auto" takes for seconds since 1970
EPOCH = datetime.datetime(1970, 1, 1)
MOST_TICKS = 200


def format_of(state: dict, largest: float) -> str:
    """The format in use where times reach up to `largest`."""
    if state["timeformat"] != "auto":
        return state["timeformat"]
    return "datetime" if UNIX_TIMES[0] <= largest < UNIX_TIMES[1] else "seconds"


def nice_step(least: float) -> float:
    power = 10.0 ** math.floor(math.log10(least))
    return next((m * power for m in (1, 2, 5) if m * power >= least * (1 - 1e-9)), 10 * power)


def clock_step(least: float) -> float:
    """The smallest usual step of a clock that is not less than `least` seconds."""
    if least <= 0.5:
        return nice_step(least)
    return next((s for s in CLOCK_STEPS if s >= least), None) or DAY * nice_step(least / DAY)


def decimals(step: float) -> int:
    return max(0, min(9, math.ceil(-math.log10(step) - 1e-9))) if step > 0 else 0


def clock(seconds: float, digits: int) -> str:
    """Hours, minutes and seconds."""
    unit = 10**digits
    whole = round(abs(seconds) * unit)
    minutes, rest = divmod(whole, 60 * unit)
    sign = "-" if seconds < 0 and whole else ""
    return f"{sign}{minutes // 60}:{minutes % 60:02d}:{rest / unit:0{digits + 3 if digits else 2}.{digits}f}"


def time_text(t: float, form: str, digits: int) -> str:
    if not math.isfinite(t):
        return ""
    if form == "seconds":
        return f"{t:.{digits}f}"
    if form == "hms":
        return clock(t, digits)
    unit = 10**digits
    day, rest = divmod(round(t * unit), DAY * unit)
    time_of_day = clock(rest / unit, digits).rjust(8 + (digits and digits + 1), "0")
    if form == "time":
        return time_of_day
    try:
        return f"{EPOCH + datetime.timedelta(days=day):%Y-%m-%d} {time_of_day}"
    except OverflowError:
        return f"{t:.{digits}f}"


class TimeLocator(Locator):
    """Ticks at usual steps of a clock."""

    def __init__(self, most: int = 7):
        self.most, self.step = most, 1.0

    def __call__(self):
        return self.tick_values(*self.axis.get_view_interval())

    def tick_values(self, vmin, vmax):
        low, high = min(vmin, vmax), max(vmin, vmax)
        if not (math.isfinite(low) and math.isfinite(high) and low < high):
            return [low]
        self.step = clock_step((high - low) / self.most)
        first = math.ceil(low / self.step - 1e-9)
        count = min(math.floor(high / self.step + 1e-9) - first + 1, MOST_TICKS)
        return [(first + k) * self.step for k in range(count)]


class TimeFormatter(Formatter):
    """Texts of a format; the date goes on a second line where it changes."""

    def __init__(self, form: str, locator: TimeLocator):
        self.form, self.locator = form, locator

    def format_ticks(self, values):
        digits = decimals(min(self.locator.step, 1))
        texts = [time_text(t, self.form, digits) for t in values]
        if self.form != "datetime":
            return texts
        shown, result = "", []
        for text in texts:
            day, _, time_of_day = text.partition(" ")
            if self.locator.step >= DAY:
                result.append(day)
            else:
                result.append(time_of_day if day == shown else f"{time_of_day}\n{day}")
            shown = day
        return result

    def __call__(self, t, pos=None):
        return time_text(t, self.form, decimals(min(self.locator.step, 1)))


def set_time_axis(axis, form: str) -> None:
    if form == "seconds":
        axis.set_major_locator(MaxNLocator(8, steps=[1, 2, 5, 10]))
        return
    locator = TimeLocator()
    axis.set_major_locator(locator)
    axis.set_major_formatter(TimeFormatter(form, locator))
