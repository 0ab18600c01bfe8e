"""Vertices of curves: columns and samples of a tile become one polyline that has the ink of all samples."""

from dataclasses import dataclass, field

import numpy as np

from kvalo_view.state import HUGE
from kvalo_view.tiles import COLUMNS, EMPTY, HOLD, MINUS, PLUS, SAMPLES, Tile


@dataclass
class Polyline:
    """Vertices with NaN at gaps, points without a neighbour, and places of infinite values."""

    x: np.ndarray
    y: np.ndarray
    plus: np.ndarray = field(default_factory=lambda: np.empty(0))
    minus: np.ndarray = field(default_factory=lambda: np.empty(0))

    @property
    def alone(self) -> np.ndarray:
        """Indexes of points that no line reaches."""
        gap = np.isnan(np.concatenate([[np.nan], self.y, [np.nan]]))
        return np.flatnonzero(~gap[1:-1] & gap[:-2] & gap[2:])


def without_repeats(x: np.ndarray, y: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
    """Leaves out vertices that equal the one before, which would hide that a point stands alone."""
    same = (x[1:] == x[:-1]) & ((y[1:] == y[:-1]) | (np.isnan(y[1:]) & np.isnan(y[:-1])))
    keep = np.concatenate([[True], ~same])[: len(x)]
    return x[keep], y[keep]


def steps(x: np.ndarray, y: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
    """Each value held until the next one's place."""
    return np.repeat(x, 2)[1:], np.repeat(y, 2)[: max(2 * len(y) - 1, 0)]


def of_samples(tile: Tile) -> Polyline:
    x, y = tile.samples()
    plus, minus = x[y > HUGE], x[y < -HUGE]
    y = np.where(abs(y) > HUGE, np.nan, y)
    if tile.flags & HOLD:
        x, y = steps(x, y)
    return Polyline(*without_repeats(x, y), plus, minus)


def of_columns(tile: Tile) -> Polyline:
    """A stroke from min to max in each column, joined from one's last to the next one's first sample."""
    values, marks = tile.columns()
    edges = np.linspace(tile.x0, tile.x1, tile.n + 1)
    centres = (edges[:-1] + edges[1:]) / 2
    # Whichever extreme is nearer to the first sample comes first: the same ink in shorter strokes.
    first, low, high, last = values.T
    far = abs(first - low) + abs(high - last) > abs(first - high) + abs(low - last)
    values[far] = values[far][:, [0, 2, 1, 3]]
    if tile.form == COLUMNS:
        filled = (marks & EMPTY) == 0
        x, y = np.repeat(centres[filled], 4), values[filled].ravel()
    else:
        # The held value comes in at the left edge, and the last one goes out at the right.
        x = np.stack([edges[:-1], centres, centres, centres, centres, edges[1:]], axis=1).ravel()
        y = values[:, [0, 0, 1, 2, 3, 3]].ravel()
        level = np.concatenate([[False], (y[1:-1] == y[:-2]) & (y[1:-1] == y[2:]), [False]])
        x, y = x[~level], y[~level]
    x = np.concatenate([[tile.before_x], x, [tile.after_x]])
    y = np.concatenate([[tile.before_y], y, [tile.after_y]])
    y[abs(y) > HUGE] = np.nan
    known = ~np.isnan(x)
    if tile.flags & HOLD:
        known[[0, -1]] = False  # the columns at the edges hold what the neighbours would bring
    x, y = without_repeats(x[known], y[known])
    return Polyline(x, y, centres[(marks & PLUS) != 0], centres[(marks & MINUS) != 0])


def polyline(tile: Tile) -> Polyline:
    return of_samples(tile) if tile.form == SAMPLES else of_columns(tile)


def spans(x0: np.ndarray, x1: np.ndarray, chosen: np.ndarray) -> np.ndarray:
    """Start and length of each run of neighbours that are chosen."""
    change = np.diff(np.concatenate([[False], chosen, [False]]).astype(int))
    first, last = np.flatnonzero(change == 1), np.flatnonzero(change == -1) - 1
    return np.stack([x0[first], x1[last] - x0[first]], axis=1)


def bands(tile: Tile) -> tuple[np.ndarray, np.ndarray]:
    """Where a signal of 0 and 1 is on, and where it changes too often to tell: starts and lengths."""
    if tile.form == SAMPLES:
        x, y = tile.samples()
        y = np.where(np.isfinite(y), y, 0)
        if not x.size:
            return np.empty((0, 2)), np.empty((0, 2))
        ends = np.append(x[1:], x[-1])
        return spans(x, ends, y != 0), np.empty((0, 2))
    values, _ = tile.columns()
    low, high = values[:, 1], values[:, 2]
    edges = np.linspace(tile.x0, tile.x1, tile.n + 1)
    return spans(edges[:-1], edges[1:], low == 1), spans(edges[:-1], edges[1:], low < high)


def extremes(tile: Tile) -> tuple[float, float] | None:
    """The least and the greatest finite value that is drawn of a curve."""
    if tile.form == SAMPLES:
        x, values = tile.samples()
        values = values[(x >= tile.x0) & (x <= tile.x1)] if np.isfinite(tile.x0) else values
    else:
        values = tile.columns()[0]
    values = values[abs(values) <= HUGE]
    return (float(values.min()), float(values.max())) if values.size else None
