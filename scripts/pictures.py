"""Draws the pictures of the reference, docs/pictures/*.svg, from what kvalo computes.

    .venv/bin/python scripts/pictures.py [NAME...]

The same kvalo and matplotlib give the same bytes.
"""

import io
import re
import sys
import tempfile
from pathlib import Path

import kvalo
import matplotlib as mpl
import numpy as np

mpl.use("svg")
from matplotlib import pyplot as plt  # noqa: E402 - the backend comes first

ROOT = Path(__file__).resolve().parent.parent
FOLDER = ROOT / "docs" / "pictures"

# Told apart by everybody, also by lightness alone.
INPUT, OUTPUT, SECOND, LIMIT, SHADE = "#0072B2", "#D55E00", "#009E73", "#555555", "#DDDDDD"

STYLE = {
    "svg.hashsalt": "kvalo",
    "svg.fonttype": "none",
    "font.family": ["DejaVu Sans", "sans-serif"],
    "font.size": 10,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.edgecolor": LIMIT,
    "axes.titlesize": 10,
    "axes.titlelocation": "left",
    "lines.linewidth": 1.8,
    "figure.facecolor": "white",
    "savefig.facecolor": "white",
}


def series(t, y) -> kvalo.TimeSeries:
    return kvalo.TimeSeries(np.asarray(t, float).tolist(), np.asarray(y, float).tolist())


def xy(s: kvalo.TimeSeries) -> tuple[np.ndarray, np.ndarray]:
    return np.array(s.xdata), np.array(s.ydata)


def panels(*heights: float, width: float = 7.0):
    """Panels above one another with one time axis, as high as told in inches."""
    figure, axes = plt.subplots(
        len(heights), sharex=True, figsize=(width, sum(heights)), height_ratios=heights, squeeze=False
    )
    figure.set_layout_engine("constrained")
    return figure, list(axes[:, 0])


def held(axes, s: kvalo.TimeSeries, color: str, markers: bool = False, **options) -> None:
    """A series as it is understood: every sample holds until the next one."""
    t, y = xy(s)
    axes.step(t, y, where="post", color=color, **options)
    if markers:
        axes.plot(t, y, "o", color=color, markersize=4.5)


def logical(axes, s: kvalo.TimeSeries, color: str, title: str) -> None:
    t, y = xy(s)
    axes.fill_between(t, y, step="post", color=color, alpha=0.25, linewidth=0)
    held(axes, s, color)
    axes.set(title=title, ylim=(-0.15, 1.25), yticks=[0, 1])


def limit(axes, value: float, text: str, x: float, side: str = "right", below: bool = False) -> None:
    axes.axhline(value, color=LIMIT, linestyle="--", linewidth=1.2)
    axes.text(x, value, text, color=LIMIT, ha=side, va="top" if below else "bottom", fontsize=9)


def span(axes, start: float, end: float, y: float, text: str) -> None:
    """An arrow over a duration, with its name above."""
    arrow = {"arrowstyle": "<->", "color": "black", "shrinkA": 0, "shrinkB": 0, "linewidth": 1.0}
    axes.annotate("", (start, y), (end, y), arrowprops=arrow)
    axes.text((start + end) / 2, y + 0.04, text, ha="center", va="bottom")


def operators():
    a = series([0.0, 1.0, 2.0, 3.0, 4.0], [1.0, 2.0, 3.0, 2.0, 2.5])
    b = series([0.6, 1.4, 2.6, 3.4], [2.0, 1.0, 3.0, 1.5])
    figure, (top, bottom) = panels(1.9, 1.9)
    held(top, a, INPUT, markers=True, label="a")
    held(top, b, SECOND, markers=True, label="b")
    top.hlines(2.0, 0.0, 0.6, color=SECOND, linestyle=":", linewidth=1.8)
    top.text(0.3, 2.08, "first value of b", color=SECOND, ha="center", va="bottom", fontsize=9)
    top.set(title="two series on time stamps of their own", ylim=(0.5, 3.6), yticks=[1, 2, 3])
    top.legend(frameon=False, loc="upper right", ncols=2)
    held(bottom, a + b, OUTPUT, markers=True)
    bottom.set(title="a + b, on the time stamps of both", ylim=(2.0, 6.6), yticks=[3, 4, 5, 6])
    bottom.set(xlabel="time [s]", xlim=(-0.1, 4.6))
    for t in xy(a + b)[0]:
        for axes in (top, bottom):
            axes.axvline(t, color=SHADE, linewidth=0.8, zorder=0)
    return figure


def debounce():
    t = np.arange(0.0, 14.0, 0.1)
    y = np.zeros(t.size)
    for start, end in ((1.0, 1.4), (3.0, 7.0), (7.5, 9.0)):
        y[(t >= start - 1e-9) & (t < end - 1e-9)] = 1.0
    s = series(t, y)
    figure, (top, middle, bottom) = panels(1.1, 1.1, 1.35)
    logical(top, s, INPUT, "input")
    logical(middle, kvalo.debounce(s, on=1), OUTPUT, "debounce(input, on=1)")
    span(middle, 3.0, 4.0, 0.5, "on")
    logical(bottom, kvalo.debounce(s, on=1, off=2), OUTPUT, "debounce(input, on=1, off=2)")
    span(bottom, 9.0, 11.0, 0.5, "off")
    bottom.text(2.2, 0.5, "off", ha="center", va="bottom")
    bottom.text(0.55, 0.5, "off", ha="center", va="bottom")
    bottom.set(xlabel="time [s]", xlim=(0, 14))
    return figure


def hysteresis():
    rng = np.random.default_rng(5)
    t = np.arange(0.0, 20.0, 0.1)
    y = 5 - 4.2 * np.cos(2 * np.pi * t / 13) + 0.5 * rng.standard_normal(t.size)
    s = series(t, y)
    figure, (top, middle, bottom) = panels(2.1, 1.0, 1.2)
    top.plot(t, y, color=INPUT)
    limit(top, 6.0, "upper = 6", 0.2, side="left")
    limit(top, 4.0, "lower = 4", 0.2, side="left")
    top.set(title="input", yticks=[0, 4, 6, 10], ylabel="value")
    logical(middle, s > 5, SECOND, "input > 5, for comparison")
    logical(bottom, kvalo.hysteresis(s, lower=4, upper=6), OUTPUT, "hysteresis(input, lower=4, upper=6)")
    bottom.set(xlabel="time [s]", xlim=(0, 20))
    return figure


def in_range():
    t = np.arange(0.0, 14.0, 0.1)
    y = (
        20
        + 1.2 * np.sin(2.1 * t)
        + 9 * np.exp(-(((t - 5.0) / 0.7) ** 2))
        - 8 * np.exp(-(((t - 7.6) / 0.5) ** 2))
    )
    s = series(t, y)
    figure, (top, middle, bottom) = panels(1.9, 1.0, 1.35)
    top.axhspan(17, 23, color=SHADE, linewidth=0)
    held(top, s, INPUT)
    limit(top, 23, "upper = 23", 14)
    limit(top, 17, "lower = 17", 14, below=True)
    top.set(title="input", ylabel="value", yticks=[10, 17, 23, 30])
    logical(middle, kvalo.in_range(s, lower=17, upper=23), OUTPUT, "in_range(input, lower=17, upper=23)")
    late = kvalo.in_range(s, lower=17, upper=23, pers=2)
    logical(bottom, late, OUTPUT, "in_range(input, lower=17, upper=23, pers=2)")
    last = xy(s)[0][np.flatnonzero((y < 17) | (y > 23))[-1]]
    span(bottom, 0.0, 2.0, 0.5, "pers")
    span(bottom, last + 0.1, last + 2.1, 0.5, "pers")
    bottom.set(xlabel="time [s]", xlim=(0, 14))
    return figure


def stale():
    rng = np.random.default_rng(3)
    t = np.arange(0.0, 14.0, 0.2)
    y = np.round(12 + 2 * np.sin(0.8 * t) + 0.3 * rng.standard_normal(t.size), 1)
    frozen = (t > 5.1) & (t < 10.1)
    y[frozen] = y[frozen][0]
    s = series(t, y)
    figure, (top, bottom) = panels(1.9, 1.35)
    held(top, s, INPUT)
    top.axvspan(t[frozen][0], t[frozen][-1] + 0.2, color=SHADE, linewidth=0, zorder=0)
    top.text(t[frozen].mean(), 14.2, "the sensor is frozen", ha="center", fontsize=9)
    top.set(title="input", ylabel="value", ylim=(9, 15.3))
    logical(bottom, kvalo.stale(s, pers=2), OUTPUT, "stale(input, pers=2)")
    span(bottom, t[frozen][0] - 0.2, t[frozen][0] + 1.8, 0.5, "pers")
    bottom.set(xlabel="time [s]", xlim=(0, 14))
    return figure


def filters():
    s = kvalo.create_step(step=1, xmax=6, xdiff=0.05)
    figure, (top, bottom) = panels(1.2, 2.5)
    held(top, s, INPUT)
    top.set(title="input", ylim=(-0.15, 1.25), yticks=[0, 1])
    held(bottom, kvalo.lowpass(s, tau=1), OUTPUT)
    held(bottom, kvalo.highpass(s, tau=1), SECOND)
    bottom.text(3.6, 0.86, "lowpass(input, tau=1)", color=OUTPUT, va="top")
    bottom.text(3.6, 0.16, "highpass(input, tau=1)", color=SECOND, va="bottom")
    bottom.axvline(2.0, color=LIMIT, linestyle="--", linewidth=1.2)
    limit(bottom, 1 - np.exp(-1), "63 %", 6)
    span(bottom, 1.0, 2.0, 1.08, "tau")
    bottom.set(ylim=(-0.1, 1.2), yticks=[0, 0.5, 1], xlabel="time [s]", xlim=(0, 6))
    return figure


def lookup():
    bp, val = [0.0, 10.0, 20.0, 35.0, 50.0], [1.0, 1.4, 3.0, 3.6, 6.0]
    ramp = series(np.linspace(-15, 65, 801), np.linspace(-15, 65, 801))
    x = xy(ramp)[1]
    figure, (axes,) = panels(3.2)
    axes.plot(x, xy(kvalo.lut1d(ramp, bp, val, clip=False))[1], "--", color=SECOND, label="clip=False")
    axes.plot(x, xy(kvalo.lut1d(ramp, bp, val))[1], color=OUTPUT, label="clip=True")
    axes.plot(bp, val, "o", color="black", label="the table")
    axes.axvspan(bp[0], bp[-1], color=SHADE, alpha=0.6, linewidth=0, zorder=0)
    axes.set(xlabel="value of the input", ylabel="result", xlim=(-15, 65), xticks=bp)
    axes.legend(frameon=False, loc="upper left")
    return figure


def insight():
    sys.path.insert(0, str(ROOT / "examples"))
    from sample_flight import write_flight

    with tempfile.TemporaryDirectory() as folder:
        table = kvalo.Container(path=str(write_flight(folder, forms=("csv",))["csv"]))
        names = ("rail_voltage", "current", "overload")
        t, rail = xy(table.rail_voltage + 0)
        current, overload = (xy(table[name] + 0)[1] for name in names[1:])
    starts = np.flatnonzero((overload[1:] != 0) & (overload[:-1] == 0)) + 1
    figure, axes = panels(1.5, 1.5, 1.2)
    for panel, values, color in zip(axes, (rail, current, overload), (OUTPUT, SECOND, INPUT), strict=True):
        for start in starts:
            around = slice(start - 16 * 5, start + 16 * 2)
            panel.step(
                t[around] - t[start], values[around], where="post", color=color, alpha=0.45, linewidth=1.0
            )
        panel.axvline(0.0, color=LIMIT, linestyle="--", linewidth=1.2)
    axes[0].set(title="rail voltage [V]: the same fall each time, a finding", ylim=(4.6, 5.5))
    axes[1].set(title="current of the battery [A]: it rises too, but from a different level each time")
    axes[2].set(
        title=f"the event: {starts.size} overloads, laid over each other", ylim=(-0.15, 1.25), yticks=[0, 1]
    )
    span(axes[0], -2.5625, 0.0, 5.0, "2.5625 s")
    axes[2].set(xlabel="time from the event [s]", xlim=(-5, 2))
    return figure


PICTURES = (operators, debounce, hysteresis, in_range, stale, filters, lookup, insight)


def compact(svg: str) -> str:
    """Outlines with two decimals, each on one line: smaller files, and nobody sees the difference."""

    def rounded(number):
        return f"{float(number[0]):.2f}".rstrip("0").rstrip(".")

    def outline(found):
        return ' d="' + re.sub(r"\d+\.\d+", rounded, found[1]).replace("\n", " ").strip() + '"'

    return re.sub(r' d="([^"]*)"', outline, svg)


def main() -> None:
    wanted = set(sys.argv[1:]) or {draw.__name__ for draw in PICTURES}
    unknown = wanted - {draw.__name__ for draw in PICTURES}
    if unknown:
        sys.exit(f"no picture {', '.join(sorted(unknown))}")
    FOLDER.mkdir(parents=True, exist_ok=True)
    with plt.rc_context(STYLE):
        for draw in PICTURES:
            if draw.__name__ in wanted:
                figure = draw()
                drawn = io.StringIO()
                figure.savefig(drawn, format="svg", metadata={"Date": None, "Creator": None})
                plt.close(figure)
                (FOLDER / f"{draw.__name__}.svg").write_text(compact(drawn.getvalue()), encoding="utf-8")


if __name__ == "__main__":
    main()
