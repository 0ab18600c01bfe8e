"""The place of one chart in a figure: its axes, their limits, ticks and titles, and its legend."""

import math

import numpy as np
from matplotlib.figure import FigureBase
from matplotlib.ticker import MultipleLocator

from kvalo_view import times
from kvalo_view.state import HUGE, number
from kvalo_view.theme import Theme
from kvalo_view.tiles import draw

MARGIN = 0.04  # of the range, above and below curves
MOST_COLUMNS = 16384
MOST_ROWS = 8192
MOST_LEGEND = 16


def plain(text: str) -> str:
    """A text that stands as it is: no formula begins at a dollar sign."""
    return text.replace("$", r"\$")


def joined(ranges) -> tuple[float, float] | None:
    ranges = [r for r in ranges if r is not None and all(map(math.isfinite, r))]
    return (min(r[0] for r in ranges), max(r[1] for r in ranges)) if ranges else None


def with_extent(low: float, high: float) -> tuple[float, float]:
    """A range that an axis can have: equal ends are moved apart."""
    if low < high:
        return low, high
    half = max(0.5, abs(low) * 1e-6)
    return low - half, high + half


class Panel:
    """What a kind's drawing function works with."""

    def __init__(
        self, holder: FigureBase, state: dict, chart: dict, theme: Theme, pixels: tuple[int, int], x=None
    ):
        self.holder, self.state, self.chart, self.theme, self.pixels = holder, state, chart, theme, pixels
        limits = state["timelimits"] if chart["x"]["time"] else None
        self.x_range = x or (tuple(map(float, limits)) if limits else None)
        self.x_whole = None
        self.left = self.right = None

    # ---- data ----

    def tiles(self, columns: int = 2, most: int = MOST_COLUMNS):
        """What is drawn with so many columns a pixel; none for a chart that cannot be drawn, which then says why."""
        width = min(columns * self.pixels[0], most)
        height = min(columns * self.pixels[1], MOST_ROWS)
        y = None
        if all(series["side"] == "left" for series in self.chart["series"]):
            low, high = number(self.chart["left"]["min"]), number(self.chart["left"]["max"])
            y = (low, high) if low < high else None
        tiles, error, self.x_whole = draw(self.chart, self.x_range, width, height, y)
        if error:
            self.say(error)
        elif not tiles:
            self.say("No data")
        elif self.x_whole and max(map(abs, self.x_whole)) > HUGE:
            self.say("Values on the x axis are too large to be drawn")
            return []
        return tiles

    def say(self, text: str) -> None:
        """A sentence in place of a drawing."""
        style = {"ha": "center", "va": "center", "color": self.theme.soft, "wrap": True}
        self.holder.text(0.5, 0.5, plain(text), **style)

    def series(self, key: int) -> dict:
        return self.chart["series"][key]

    def name(self, key: int) -> str:
        """The name to show of a series."""
        if key >= len(self.chart["series"]):
            return ""
        series = self.series(key)
        return plain(
            series["full_name"] if self.chart["legend"]["full"] and series["full_name"] else series["name"]
        )

    # ---- axes ----

    def axes(self, *place, **options):
        """New axes in the theme's colours."""
        axes = self.holder.add_subplot(*(place or (1, 1, 1)), **options)
        self.dress(axes)
        axes.grid(True, color=self.theme.grid, linewidth=0.8)
        axes.set_axisbelow(True)
        if self.left is None:
            self.left = axes
        return axes

    def dress(self, axes) -> None:
        theme = self.theme
        axes.set_facecolor(theme.back)
        axes.tick_params(colors=theme.text, which="both", labelsize=9)
        for axis in (axes.xaxis, axes.yaxis):
            axis.label.set(color=theme.text, fontsize=9)
            axis.get_offset_text().set(color=theme.text, fontsize=9)
        axes.title.set(color=theme.text, fontsize=10)
        for spine in axes.spines.values():
            spine.set_color(theme.line)

    def on_side(self, side: str):
        """The axes of the left or the right y axis."""
        if side == "left":
            return self.left
        if self.right is None:
            self.right = self.left.twinx()
            self.dress(self.right)
            self.right.patch.set_visible(False)
        return self.right

    def set_x(self, axes, title: str = "", margin: float = 0.0) -> None:
        """Limits, ticks and title of the x axis."""
        whole = self.x_range or self.x_whole
        if whole is not None and all(map(math.isfinite, whole)):
            low, high = with_extent(*whole)
            extra = 0 if self.x_range else margin * (high - low)
            axes.set_xlim(low - extra, high + extra)
            if self.chart["x"]["time"]:
                times.set_time_axis(axes.xaxis, times.format_of(self.state, max(abs(low), abs(high))))
        if self.chart["x"]["time"] and not title:
            title = "s" if self.time_format() == "seconds" else ""
        axes.set_xlabel(plain(self.chart["xlabel"]) or title)

    def time_format(self) -> str:
        low, high = self.x_range or self.x_whole or (0, 0)
        return times.format_of(self.state, max(abs(low), abs(high)))

    def set_y(self, axes, side: str, found: tuple[float, float] | None, zero: bool = False) -> None:
        """Limits and ticks of a y axis: the script's, else around what was found."""
        wanted = self.chart[side]
        low, high = with_extent(*(found or (0.0, 1.0)))
        extra = MARGIN * (high - low)
        low, high = (low if zero and low == 0 else low - extra), high + extra
        low = low if wanted["min"] is None else number(wanted["min"])
        high = high if wanted["max"] is None else number(wanted["max"])
        if low != high and math.isfinite(high - low):
            axes.set_ylim(low, high)
        tick = number(wanted["tick"])
        if tick > 0 and abs(high - low) / tick <= times.MOST_TICKS:
            axes.yaxis.set_major_locator(MultipleLocator(tick))

    def is_fitted(self, side: str) -> bool:
        return self.chart["fit"] in ("b", side[0])

    def legend(self, handles: list) -> None:
        """Names of the curves, above the axes or at the script's place (shares of the axes from the top left)."""
        wanted = self.chart["legend"]
        if not wanted["visible"] or not handles:
            return
        x, y = number(wanted["x"]), number(wanted["y"])
        place = {"loc": "lower left", "bbox_to_anchor": (0, 1.0), "ncols": 4, "borderaxespad": 0.2}
        if x or y:
            width, height = self.pixels
            across = x if abs(x) <= 1 else x / width
            down = y if abs(y) <= 1 else y / height
            place = {"loc": "upper left", "bbox_to_anchor": (across, 1 - down), "borderaxespad": 0}
        rest = len(handles) - MOST_LEGEND
        legend = self.left.legend(
            handles=handles[:MOST_LEGEND],
            title=f"and {rest} more" if rest > 0 else None,
            labelcolor=self.theme.text,
            frameon=bool(x or y),
            facecolor=self.theme.back,
            edgecolor=self.theme.line,
            fontsize=9,
            **place,
        )
        legend.get_title().set(color=self.theme.soft, fontsize=8)
        legend.set_zorder(10)

    def edge_marks(self, axes, places: np.ndarray, top: bool, color) -> None:
        """Triangles at the edge of the axes where values are infinite."""
        if places.size:
            shape = {"marker": "^" if top else "v", "linestyle": "none", "markersize": 5, "color": color}
            height = np.full(places.size, 0.985 if top else 0.015)
            axes.plot(
                places, height, transform=axes.get_xaxis_transform(), scalex=False, scaley=False, **shape
            )
