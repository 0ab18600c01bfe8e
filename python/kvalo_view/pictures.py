"""Pictures of charts: as figures, as files of a format, as bytes. matplotlib is loaded by the first one."""

import io
import math
import re
from pathlib import Path

from kvalo_view import state as states

FORMATS = ("png", "svg", "pdf")
SIZE = (1200, 675)  # of a chart, in pixels
PAGE_ROW = 400  # height of a row of a page, in pixels
SMALLEST, LARGEST = 64, 16_384
MOST_PIXELS = 100_000_000


def charts_module():
    """The drawing itself, or a sentence on what it needs."""
    try:
        from kvalo_view import charts
    except ModuleNotFoundError as error:
        if (error.name or "").split(".")[0] in ("matplotlib", "numpy", "mpl_toolkits"):
            raise RuntimeError(
                "Pictures are drawn with matplotlib: install it with pip install matplotlib"
            ) from error
        raise
    return charts


def pixels_of(size: str) -> tuple[int, int] | None:
    """The numbers of "1600x900"; None for an empty text. Raises ValueError."""
    if not size.strip():
        return None
    found = re.fullmatch(r"\s*(\d{1,6})\s*[xX]\s*(\d{1,6})\s*", size)
    if found is None:
        raise ValueError(f"The size of a picture is a text such as \"1600x900\", not '{size}'")
    width, height = map(int, found.groups())
    if not (
        min(width, height) >= SMALLEST and max(width, height) <= LARGEST and width * height <= MOST_PIXELS
    ):
        raise ValueError(
            f"A picture of {width} x {height} pixels cannot be drawn: each side has {SMALLEST} to {LARGEST}, "
            f"all together at most {MOST_PIXELS:,}"
        )
    return width, height


def format_of(path: str) -> str:
    form = Path(path).suffix[1:].lower()
    if form not in FORMATS:
        raise ValueError(f"Pictures are written as .png, .svg or .pdf; give '{path}' one of these extensions")
    return form


def figures(size: str = "") -> list:
    """A matplotlib figure for each chart, in order of the charts' ids; size as in "1600x900"."""
    charts = charts_module()
    state = states.read()
    pixels = pixels_of(size) or SIZE
    return [charts.chart_figure(state, chart, pixels) for chart in states.charts_in_order(state)]


def figure_of(chart: int, size: str):
    """The figure of a chart; 0: of the page that is shown. Raises ValueError for a chart that is not there."""
    charts = charts_module()
    state = states.read()
    pixels = pixels_of(size)
    if chart == 0:
        page = next((page for page in state["pages"] if page["id"] == state["page"]), None)
        if page is None or not page["charts"]:
            raise ValueError("There is no chart to save: draw one with kvalo.plot() first")
        columns = charts.page_columns(page)
        rows = math.ceil(len(page["charts"]) / columns)
        whole = (max(SIZE[0], 640 * columns), SIZE[1] if rows == 1 else PAGE_ROW * rows)
        return charts.page_figure(state, page, pixels or (min(whole[0], LARGEST), min(whole[1], LARGEST)))
    found = next((item for item in state["charts"] if int(item["id"]) == chart), None)
    if found is None:
        raise ValueError(f"There is no chart {chart}: use the number that kvalo.plot() and the like return")
    return charts.chart_figure(state, found, pixels or SIZE)


def content(figure, form: str) -> bytes:
    """The figure as a file of this format."""
    drawn = io.BytesIO()
    options = {"metadata": {"Date": None}} if form == "svg" else {}
    with charts_module().lock:
        figure.savefig(drawn, format=form, facecolor=figure.get_facecolor(), **options)
    return drawn.getvalue()


def save(path: str, chart: int = 0, size: str = "") -> None:
    """Writes a chart, or with 0 the page that is shown, to a file of the format that its extension names."""
    form = format_of(path)
    picture = content(figure_of(chart, size), form)
    try:
        Path(path).write_bytes(picture)
    except OSError as error:
        advice = f"{error.strerror}; choose a folder that exists and can be written to"
        raise OSError(error.errno, advice, path) from error


def for_page(chart: int, form: str, t0: float, t1: float) -> bytes:
    """What the live page's server answers when a picture of a chart is asked for."""
    state = states.read()
    found = next(item for item in state["charts"] if int(item["id"]) == chart)
    x = (t0, t1) if t0 < t1 else None
    return content(charts_module().chart_figure(state, found, SIZE, x), form)
