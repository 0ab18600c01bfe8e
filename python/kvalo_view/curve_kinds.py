"""Draws the kinds of charts that are made of curves: lines, states, spectra, Bode diagrams, correlations."""

from matplotlib.path import Path
from matplotlib.patheffects import AbstractPathEffect

from kvalo_view import curves
from kvalo_view.dots import draw_dots
from kvalo_view.panel import Panel, joined
from kvalo_view.state import HUGE, number
from kvalo_view.theme import curve_style
from kvalo_view.tiles import DOTS, HOLD, MASK, PIXELS, Tile

WIDTH = 1.2  # of lines, in points
LANE = 0.7  # height of a state's band, of its lane


class InPieces(AbstractPathEffect):
    """Draws a long line as many short ones: Agg takes longer than in proportion, and refuses very long ones."""

    LENGTH = 96

    def draw_path(self, renderer, gc, tpath, affine, rgbFace=None):
        for i in range(0, max(len(tpath.vertices) - 1, 1), self.LENGTH):
            piece = Path(tpath.vertices[i : i + self.LENGTH + 1])
            piece.should_simplify = False  # the columns are what can be seen already
            renderer.draw_path(gc, piece, affine, rgbFace)


def draw_curve(panel: Panel, axes, tile: Tile, style: dict, label: str):
    """One curve as a line, with dots where it has no neighbours and marks where it is infinite."""
    found = curves.polyline(tile)
    if tile.flags & HOLD:
        axes.fill_between(found.x, 0, found.y, color=style["color"], alpha=0.18, linewidth=0)
    (line,) = axes.plot(found.x, found.y, linewidth=WIDTH, label=label, solid_joinstyle="round", **style)
    if found.x.size > 4 * InPieces.LENGTH:
        line.set_path_effects([InPieces()])
    else:
        line.get_path().should_simplify = False
    alone = found.alone
    if alone.size:
        axes.plot(found.x[alone], found.y[alone], ".", markersize=4, color=style["color"])
    panel.edge_marks(axes, found.plus, True, style["color"])
    panel.edge_marks(axes, found.minus, False, style["color"])
    return line


def is_cloud(tile: Tile) -> bool:
    return bool(tile.flags & DOTS) or tile.form in (MASK, PIXELS)


def own_extremes(series: dict) -> tuple[float, float] | None:
    low, high = number(series["ymin"]), number(series["ymax"])
    return (max(low, -HUGE), min(high, HUGE)) if low <= high else None


def line(panel: Panel) -> None:
    tiles = panel.tiles()
    if not tiles:
        return
    axes = panel.axes()
    found, handles = {"left": [], "right": []}, []
    for i, tile in enumerate(tiles):
        series = panel.series(tile.series)
        side = series["side"]
        style = curve_style(panel.theme, i)
        label = panel.name(tile.series)
        if is_cloud(tile):
            handles.append(draw_dots(panel, panel.on_side(side), tile, style["color"], label))
            found[side].append(own_extremes(series))
        else:
            handles.append(draw_curve(panel, panel.on_side(side), tile, style, label))
            seen = panel.is_fitted(side) or series["ymin"] is None
            found[side].append(curves.extremes(tile) if seen else own_extremes(series))
            if tile.flags & HOLD:
                found[side].append((0.0, 0.0))  # bands stand on zero
    for side, ranges in found.items():
        if ranges:
            panel.set_y(panel.on_side(side), side, joined(ranges))
    panel.set_x(axes)
    name_sides(panel, handles, [panel.series(tile.series)["side"] for tile in tiles])
    panel.legend(handles)


def name_sides(panel: Panel, handles: list, sides: list[str]) -> None:
    """With two y axes the legend says which curve belongs to the right one."""
    if "right" in sides and "left" in sides:
        for handle, side in zip(handles, sides, strict=True):
            if side == "right":
                handle.set_label(f"{handle.get_label()} (right)")
    if "left" not in sides:
        panel.left.tick_params(axis="y", left=False, labelleft=False)


def states(panel: Panel) -> None:
    """Lanes, the first series on top: a band where the value is not 0, half of its colour where it changes."""
    tiles = panel.tiles()
    if not tiles:
        return
    axes = panel.axes()
    axes.grid(False, axis="y")
    places = []
    for i, tile in enumerate(tiles):
        style = curve_style(panel.theme, i)
        place = len(tiles) - 1 - i
        places.append(place + LANE / 2)
        axes.axhline(place, color=panel.theme.line, linewidth=0.8, zorder=1)
        if is_cloud(tile):
            axes.text(
                0.5,
                place + LANE / 2,
                "times do not ascend",
                transform=axes.get_yaxis_transform(),
                ha="center",
            )
            continue
        on, mixed = curves.bands(tile)
        for spans, alpha in ((on, 1.0), (mixed, 0.5)):
            if len(spans):
                # A hairline around each, so that a short one still has ink.
                axes.broken_barh(
                    spans, (place, LANE), color=style["color"], alpha=alpha, linewidth=0.4, zorder=2
                )
    axes.set_yticks(places, [panel.name(tile.series) for tile in tiles])
    axes.set_ylim(-0.15, len(tiles) - 1 + LANE + 0.15)
    panel.set_x(axes)


def spectrum(panel: Panel) -> None:
    tiles = panel.tiles()
    if not tiles:
        return
    axes = panel.axes()
    found, handles, sides = {"left": [], "right": []}, [], []
    for i, tile in enumerate(tiles):
        side = panel.series(tile.series)["side"]
        sides.append(side)
        style = curve_style(panel.theme, i)
        handles.append(draw_curve(panel, panel.on_side(side), tile, style, panel.name(tile.series)))
        found[side].append(curves.extremes(tile))
    for side, ranges in found.items():
        if ranges:
            panel.set_y(panel.on_side(side), side, joined([*ranges, (0.0, 0.0)]), zero=True)
    panel.set_x(axes, "Hz")
    name_sides(panel, handles, sides)
    panel.legend(handles)


def wide(found: tuple[float, float] | None) -> tuple[float, float] | None:
    """At least one decibel or degree: what is less is rounding, not a shape."""
    if found is None or found[1] - found[0] >= 1:
        return found
    middle = (found[0] + found[1]) / 2
    return middle - 0.5, middle + 0.5


def bode(panel: Panel) -> None:
    """Gain and coherence above, phase below, over the logarithm of the frequency."""
    tiles = panel.tiles(most=16384, columns=16)  # the logarithm spreads the first columns
    if not tiles:
        return
    gain, phase, coherence = tiles
    top = panel.axes(2, 1, 1)
    bottom = panel.axes(2, 1, 2, sharex=top)
    colors = [curve_style(panel.theme, i) for i in range(3)]
    share = panel.on_side("right")
    draw_curve(panel, share, coherence, colors[2] | {"linestyle": ":"}, "Coherence")
    draw_curve(panel, top, gain, colors[0], "Gain")
    draw_curve(panel, bottom, phase, colors[1], "Phase")
    top.set_zorder(share.get_zorder() + 1)
    top.patch.set_visible(False)
    share.set(ylim=(0, 1.04), ylabel="Coherence")
    panel.set_y(top, "left", wide(curves.extremes(gain)))
    panel.set_y(bottom, "right", wide(curves.extremes(phase)))
    top.set(ylabel="Gain, dB", title=f"{panel.name(0)} to {panel.name(1)}")
    bottom.set(ylabel="Phase, °")
    top.tick_params(labelbottom=False)
    frequencies = curves.polyline(gain).x
    positive = frequencies[frequencies > 0]
    panel.set_x(bottom, "Hz")
    if positive.size > 1:
        bottom.set_xscale("log")
        bottom.set_xlim(positive[0], positive[-1])


def correlation(panel: Panel) -> None:
    tiles = panel.tiles()
    if not tiles:
        return
    axes = panel.axes()
    label = f"{panel.name(1)} after {panel.name(0)}"
    handle = draw_curve(panel, axes, tiles[0], curve_style(panel.theme, 0), label)
    axes.axvline(0, color=panel.theme.line, linewidth=0.8, zorder=1)
    panel.set_y(axes, "left", curves.extremes(tiles[0]))
    panel.set_x(axes, "lag, s")
    panel.legend([handle])
