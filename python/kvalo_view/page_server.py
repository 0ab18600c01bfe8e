"""The live page: starts its server, tells its address, and writes it with its data into one file."""

import os
import sys
import webbrowser
from pathlib import Path

from kvalo_view import _view, notebook, pictures
from kvalo_view import state as states

ASSETS = Path(__file__).parent / "page"
COLUMNS = 16_384  # of a curve in a file, which then zooms eight times deep
CLOUD = (2048, 1024)  # pixels of dots in a file
NO_PAGE = (
    "kvalo_view was installed without its live page. kvalo.save() and kvalo_view.figures() draw without it; "
    "to have the page, build kvalo again with npm installed"
)


def is_interactive() -> bool:
    """Whether a person is typing: then nothing may wait."""
    return hasattr(sys, "ps1") or bool(sys.flags.interactive) or notebook.session() is not None


def has_screen() -> bool:
    return bool(os.environ.get("DISPLAY") or os.environ.get("WAYLAND_DISPLAY"))


def serve() -> str:
    """Starts the server where it does not run, and returns the page's address."""
    if not (ASSETS / "index.html").is_file():
        raise RuntimeError(NO_PAGE)
    title = Path(sys.argv[0]).name if sys.argv and sys.argv[0] else "kvalo"
    return _view.serve(str(ASSETS), title, picture=pictures.for_page)


def address() -> str:
    """The page's address; empty while there is no server."""
    return _view.address()


def show(block: bool | None = None) -> str:
    """Shows all charts on a page in the browser, and returns its address.

    In a script it returns when the last tab has been closed, or on Ctrl-C; in a notebook or an interactive
    session at once. `block` decides otherwise.
    """
    place = serve()
    try:
        print(f"Charts: {place}", flush=True)
        if has_screen():
            webbrowser.open(place)
        waits = not is_interactive() if block is None else block
        while waits and not _view.wait_left(0.5):
            pass
    except KeyboardInterrupt:
        print("", flush=True)
    return place


def save_page(path) -> None:
    """Writes all charts into one HTML file that needs no server and can be zoomed."""
    try:
        from kvalo_view.page.assemble import assemble
    except ModuleNotFoundError:
        raise RuntimeError(NO_PAGE) from None
    state = _view.state()
    tiles = []
    for chart in states.charts_in_order(states.read()):
        width, height = CLOUD if chart["kind"] in ("cross", "spectro") or has_dots(chart) else (COLUMNS, 1024)
        tiles += _view.draw(int(chart["id"]), width=width, height=height)[0]
    try:
        text = assemble(ASSETS, state, tiles)
    except FileNotFoundError:
        raise RuntimeError(NO_PAGE) from None
    Path(path).write_text(text, encoding="utf-8")


def has_dots(chart: dict) -> bool:
    return any(series["style"] == "dots" or series["ascending"] is False for series in chart["series"])
