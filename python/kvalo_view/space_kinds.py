"""Draws lines and surfaces in space, and boards of values."""

import numpy as np
from matplotlib.patches import Rectangle
from matplotlib.ticker import MaxNLocator
from mpl_toolkits.mplot3d import Axes3D

from kvalo_view import _view
from kvalo_view.panel import Panel, plain
from kvalo_view.state import number
from kvalo_view.theme import curve_style

MOST_LINES = 120  # of a surface, each way


def space(panel: Panel) -> Axes3D:
    axes = panel.holder.add_subplot(projection="3d")
    axes.set_facecolor(panel.theme.back)
    axes.tick_params(colors=panel.theme.text, labelsize=8)
    for axis in (axes.xaxis, axes.yaxis, axes.zaxis):
        axis.label.set(color=panel.theme.text, fontsize=9)
        axis.set_pane_color(panel.theme.back)
        axis._axinfo["grid"].update(color=panel.theme.grid, linewidth=0.8)
        axis.line.set_color(panel.theme.line)
        axis.set_major_locator(MaxNLocator(5))
    axes.title.set(color=panel.theme.text, fontsize=10)
    panel.left = axes
    return axes


def line_in_space(panel: Panel) -> None:
    tiles = panel.tiles()
    if not tiles:
        return
    axes = space(panel)
    handles = []
    for i, tile in enumerate(tiles):
        names = [panel.name(3 * i + k) for k in range(3) if 3 * i + k < len(panel.chart["series"])]
        style = curve_style(panel.theme, i)
        handles += axes.plot(*tile.path(), linewidth=1.2, label=", ".join(names), **style)
    titles = {3: names, 2: ["s", *names], 1: ["s", *names, ""]}[len(names)]
    axes.set(xlabel=titles[0], ylabel=titles[1], zlabel=titles[2])
    if len(tiles) > 1:
        panel.legend(handles)


def surface(panel: Panel) -> None:
    tiles = panel.tiles()
    if not tiles:
        return
    x, z, values = tiles[0].mesh()
    axes = space(panel)
    if min(values.shape) < 2:
        for row, place in zip(values, z, strict=True):
            axes.plot(x, np.full(x.size, place), row, color=panel.theme.curves[0])
    else:
        across, deep = np.meshgrid(x, z)
        options = {
            "rcount": MOST_LINES,
            "ccount": MOST_LINES,
            "cmap": "viridis",
            "linewidth": 0,
            "antialiased": False,
        }
        shown = np.ma.masked_invalid(values.astype(float))
        if shown.count():
            axes.plot_surface(across, deep, shown, vmin=shown.min(), vmax=shown.max(), **options)
    axes.set(xlabel="x", ylabel="z", zlabel="y", title=panel.name(0))


def newest(panel: Panel, series: dict) -> float:
    """The value at the script's cursor, or the newest."""
    x, y, _ = (np.frombuffer(part) for part in _view.samples(int(panel.chart["id"]), series["key"]))
    at = panel.state["globaltime"]
    count = x.size if at is None else int(np.searchsorted(x, number(at), side="right"))
    return float(y[count - 1]) if count else float("nan")


def board(panel: Panel) -> None:
    """Names, values and bars at the script's places, in pixels from the top left."""
    if not panel.chart["series"]:
        panel.say("No data")
        return
    axes = panel.holder.add_subplot(position=(0, 0, 1, 1))
    axes.set_axis_off()
    axes.set(xlim=(0, panel.pixels[0]), ylim=(panel.pixels[1], 0))
    panel.left = axes
    theme = panel.theme
    free = 16  # objects without a place go below each other
    for i, series in enumerate(panel.chart["series"]):
        about = series["object"]
        x = 16 if about["x"] is None else number(about["x"])
        y = free if about["y"] is None else number(about["y"])
        free += 64 if about["y"] is None else 0
        width = 160 if about["width"] is None else max(number(about["width"]), 1)
        value = newest(panel, series)
        shown = "no value" if np.isnan(value) else f"{value:.6g}"
        axes.text(x, y, plain(series["name"]), color=theme.soft, fontsize=9, va="top")
        axes.text(x + width, y, shown, color=theme.text, fontsize=11, va="top", ha="right", weight="bold")
        if about["min"] is None and about["max"] is None:
            continue
        low = 0.0 if about["min"] is None else number(about["min"])
        high = 1.0 if about["max"] is None else number(about["max"])
        share = np.clip((value - low) / (high - low), 0, 1) if high > low and np.isfinite(value) else 0.0
        color = about["color"]
        color = tuple(part / 255 for part in color) if color else curve_style(theme, i)["color"]
        axes.add_patch(Rectangle((x, y + 22), width, 10, facecolor=theme.grid, edgecolor=theme.line))
        axes.add_patch(Rectangle((x, y + 22), width * share, 10, facecolor=color, linewidth=0))
