"""Makes this process draw its own charts: installs the handler, and answers what a script asks of its host."""

import sys

import kvalo

from kvalo_view import _view, notebook, pictures


def install() -> None:
    """Installs the handler where the process has none; a program that embeds the script keeps its own."""
    if _view.has_host():
        return
    _view.on_request(answer)
    kvalo.callback(_view.handler())
    notebook.register()


def answer(kind: str, chart: int, text: str, size: str) -> None:
    """A request of the script; what this raises is raised where the script made it."""
    ANSWERS[kind](chart, text, size)


def save(chart: int, path: str, size: str) -> None:
    pictures.save(path, chart, size)


def selfie(_chart: int, path: str, _size: str) -> None:
    pictures.save(path, 0, "")


def leave(_chart: int, _text: str, _size: str) -> None:
    sys.exit(0)


def report(_chart: int, _text: str, _size: str) -> None:
    """Errors are exceptions in the script, and the page shows them; nothing is left to do."""


ANSWERS = {"save": save, "selfie": selfie, "exit": leave, "error": report}
