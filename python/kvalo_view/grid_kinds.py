"""Draws the kinds of charts that are counts, cells and points: histograms, heat maps, spectrograms, cross plots."""

import numpy as np
from matplotlib.patches import Patch

from kvalo_view.dots import draw_dots
from kvalo_view.panel import Panel, joined
from kvalo_view.theme import curve_style
from kvalo_view.tiles import SAMPLES, Tile

COLORS = "viridis"
DECIBELS = 100  # what a spectrogram shows below its maximum


def histogram(panel: Panel) -> None:
    tiles = panel.tiles()
    if not tiles:
        return
    axes = panel.axes()
    handles, highest = [], 0.0
    for i, tile in enumerate(tiles):
        color = curve_style(panel.theme, i)["color"]
        counts = tile.doubles(tile.n, tile.n)
        edges = np.linspace(tile.x0, tile.x1, tile.n + 1)
        filled = panel.series(tile.series)["style"] != "outline"
        alpha = 0.85 if len(tiles) == 1 else 0.5
        axes.stairs(counts, edges, fill=filled, color=color, linewidth=1.5, alpha=alpha if filled else 1)
        if filled and tile.n <= 200:
            axes.vlines(
                edges[1:-1], 0, np.minimum(counts[1:], counts[:-1]), color=panel.theme.back, linewidth=0.8
            )
        handles.append(
            Patch(facecolor=color if filled else "none", edgecolor=color, label=panel.name(tile.series))
        )
        highest = max(highest, counts.max(initial=0))
    panel.set_y(axes, "left", (0.0, highest), zero=True)
    panel.x_whole = joined((tile.x0, tile.x1) for tile in tiles)
    panel.set_x(axes, "value", margin=0.02)
    axes.set_ylabel("samples")
    panel.legend(handles)


def cells(panel: Panel, tile: Tile, values: np.ndarray, what: str, lowest=None):
    """A picture of cells with the scale of its colours."""
    axes = panel.axes()
    axes.grid(False)
    picture = axes.imshow(
        np.ma.masked_invalid(values),
        extent=(tile.x0, tile.x1, tile.y0, tile.y1),
        aspect="auto",
        origin="lower",
        interpolation="nearest",
        cmap=COLORS,
        vmin=lowest,
    )
    bar = panel.holder.colorbar(picture, ax=axes, label=what, pad=0.02)
    panel.dress(bar.ax)
    bar.outline.set_edgecolor(panel.theme.line)
    return axes


def heat_map(panel: Panel) -> None:
    tiles = panel.tiles()
    if not tiles:
        return
    (tile,) = tiles
    counts = tile.grid()
    axes = cells(panel, tile, np.where(counts > 0, counts, np.nan), "samples", 0)
    panel.x_whole = (tile.x0, tile.x1)
    panel.set_x(axes, panel.name(0))
    axes.set(ylim=(tile.y0, tile.y1), ylabel=panel.name(1))


def spectrogram(panel: Panel) -> None:
    tiles = panel.tiles(columns=1)
    if not tiles:
        return
    (tile,) = tiles
    amplitudes = tile.grid().astype(float)
    decibels = np.full(amplitudes.shape, np.nan)
    np.log10(amplitudes, out=decibels, where=amplitudes > 0)
    decibels *= 20
    decibels[amplitudes == 0] = -np.inf
    finite = decibels[np.isfinite(decibels)]
    top = finite.max() if finite.size else 0.0
    lowest = max(finite.min(), top - DECIBELS) if finite.size else top - DECIBELS
    axes = cells(panel, tile, np.where(decibels < lowest, lowest, decibels), "dB", lowest)
    panel.x_whole = (tile.x0, tile.x1)
    panel.set_x(axes)
    axes.set(ylim=(tile.y0, tile.y1), ylabel="Hz", title=panel.name(0))


def cross_plot(panel: Panel) -> None:
    tiles = panel.tiles()
    if not tiles:
        return
    axes = panel.axes()
    found, handles = {"left": [], "right": []}, []
    for i, tile in enumerate(tiles):
        side = panel.series(tile.series)["side"]
        color = curve_style(panel.theme, i)["color"]
        handles.append(draw_dots(panel, panel.on_side(side), tile, color, panel.name(tile.series)))
        found[side].append(extent_of(tile))
    for side, ranges in found.items():
        if ranges:
            panel.set_y(panel.on_side(side), side, joined(ranges))
    panel.set_x(axes, panel.name(0), margin=0.03)
    if len(tiles) == 1:
        axes.set_ylabel(handles[0].get_label())
    else:
        panel.legend(handles)


def extent_of(tile: Tile) -> tuple[float, float] | None:
    if tile.form != SAMPLES:
        return tile.y0, tile.y1
    y = tile.samples()[1]
    y = y[np.isfinite(y)]
    return (y.min(), y.max()) if y.size else None
