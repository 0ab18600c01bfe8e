"""Draws points: one dot for each sample, or the pixels that hold any where there are many."""

import numpy as np
from matplotlib.colors import to_rgba
from matplotlib.lines import Line2D

from kvalo_view.panel import Panel
from kvalo_view.state import HUGE
from kvalo_view.tiles import SAMPLES, Tile

FEW = 2000  # points that are drawn large


def whole_pixels(half: np.ndarray) -> np.ndarray:
    """Joins four quarters of a pixel: it is filled where any of them is."""
    rows, columns = half.shape
    padded = np.pad(half, ((0, rows % 2), (0, columns % 2)))
    return padded.reshape(padded.shape[0] // 2, 2, -1, 2).any(axis=(1, 3))


def draw_dots(panel: Panel, axes, tile: Tile, color, label: str) -> Line2D:
    """Returns what stands for the dots in the legend."""
    if tile.form == SAMPLES:
        x, y = tile.samples()
        plus, minus = x[y > HUGE], x[y < -HUGE]
        size = 4 if x.size <= FEW else 2
        axes.plot(x, np.where(abs(y) > HUGE, np.nan, y), ".", markersize=size, color=color, markeredgewidth=0)
        panel.edge_marks(axes, plus, True, color)
        panel.edge_marks(axes, minus, False, color)
    else:
        filled = whole_pixels(tile.occupied())
        picture = np.zeros((*filled.shape, 4))
        picture[filled] = to_rgba(color)
        place = (tile.x0, tile.x1, tile.y0, tile.y1)
        limits = axes.get_xlim(), axes.get_ylim()
        axes.imshow(picture, extent=place, aspect="auto", interpolation="nearest", origin="upper", zorder=2)
        axes.set(xlim=limits[0], ylim=limits[1])
    return Line2D([], [], marker="o", markersize=4, linestyle="none", color=color, label=label)
