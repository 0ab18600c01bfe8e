"""Shows in a notebook the charts that a cell has touched, below the cell."""

import sys

from kvalo_view import pictures
from kvalo_view import state as states

_shown: dict[str, object] = {}  # by chart, what was there when it was shown last


def session():
    """The running IPython, or None."""
    ipython = sys.modules.get("IPython")
    return ipython.get_ipython() if ipython is not None else None


def register() -> None:
    """Has charts shown after every cell."""
    shell = session()
    if shell is not None:
        shell.events.register("post_run_cell", after_cell)


def touched(state: dict) -> list[dict]:
    """Charts that are new or not as they were when this was called last."""
    now = {chart["id"]: chart for chart in state["charts"]}
    changed = [chart for chart in states.charts_in_order(state) if _shown.get(chart["id"]) != chart]
    _shown.clear()
    _shown.update(now)
    return changed


def after_cell(_result=None) -> None:
    state = states.read()
    changed = touched(state)
    if not changed:
        return
    from IPython.display import display

    charts = pictures.charts_module()
    for chart in changed:
        figure = charts.chart_figure(state, chart, (960, 480))
        picture = pictures.content(figure, "png")
        names = ", ".join(series["name"] for series in chart["series"])
        display({"image/png": picture, "text/plain": f"<chart {chart['id']}: {names}>"}, raw=True)
