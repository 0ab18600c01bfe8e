"""Draws charts with matplotlib: a table of functions by kind, and pages as grids of charts."""

import math
import threading

from matplotlib.backends.backend_agg import FigureCanvasAgg
from matplotlib.figure import Figure, FigureBase

from kvalo_view import annotations, curve_kinds, grid_kinds, space_kinds
from kvalo_view.panel import Panel
from kvalo_view.theme import theme_of

DPI = 96  # a pixel of SVG

KINDS = {
    "line": curve_kinds.line,
    "bool": curve_kinds.states,
    "fft": curve_kinds.spectrum,
    "bode": curve_kinds.bode,
    "xcorr": curve_kinds.correlation,
    "cross": grid_kinds.cross_plot,
    "hist": grid_kinds.histogram,
    "heatmap": grid_kinds.heat_map,
    "spectro": grid_kinds.spectrogram,
    "line3d": space_kinds.line_in_space,
    "mesh": space_kinds.surface,
    "synoptic": space_kinds.board,
}

# The script's thread and the server's may both draw; fonts are shared.
lock = threading.RLock()


def new_figure(state: dict, pixels: tuple[int, int]) -> Figure:
    size = (pixels[0] / DPI, pixels[1] / DPI)
    figure = Figure(figsize=size, dpi=DPI, facecolor=theme_of(state).back, layout="constrained")
    figure.get_layout_engine().set(w_pad=0.08, h_pad=0.08)
    FigureCanvasAgg(figure)
    return figure


def draw_chart(holder: FigureBase, state: dict, chart: dict, pixels: tuple[int, int], x=None) -> None:
    panel = Panel(holder, state, chart, theme_of(state), pixels, x)
    KINDS[chart["kind"]](panel)
    annotations.draw(panel)


def chart_figure(state: dict, chart: dict, pixels: tuple[int, int], x=None) -> Figure:
    """The figure of one chart; x: the range of its x axis."""
    with lock:
        figure = new_figure(state, pixels)
        draw_chart(figure, state, chart, pixels, x)
        return figure


def page_columns(page: dict) -> int:
    """As the script wants them; else one for a few charts and two for many."""
    count = max(len(page["charts"]), 1)
    wanted = page["cols"] if page["cols"] > 0 else (1 if count <= 3 else 2)
    return min(wanted, count)


def page_figure(state: dict, page: dict, pixels: tuple[int, int]) -> Figure:
    """A page as a grid of its charts."""
    with lock:
        figure = new_figure(state, pixels)
        shown = [chart for chart in state["charts"] if chart["key"] in page["charts"]]
        columns = page_columns(page)
        rows = max(math.ceil(len(shown) / columns), 1)
        if page["name"] and page["name"] != "Charts":
            figure.suptitle(page["name"].replace("$", r"\$"), color=theme_of(state).text, fontsize=12)
        holders = figure.subfigures(rows, columns, squeeze=False).ravel()
        for holder in holders:
            holder.set_facecolor(theme_of(state).back)
        for holder, chart in zip(holders, shown, strict=False):
            draw_chart(holder, state, chart, (pixels[0] // columns, pixels[1] // rows))
        return figure
