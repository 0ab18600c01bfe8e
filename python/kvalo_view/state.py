"""The state of all charts as Python values: the JSON of docs/view-protocol.md."""

import json
import math

from kvalo_view import _view

HUGE = 1e290  # what no axis can reach; values beyond are drawn as infinite ones are


def read() -> dict:
    return json.loads(_view.state())


def number(value) -> float:
    """A number of the state: texts stand for what JSON cannot hold, null for what is not known."""
    return math.nan if value is None else float(value)


def charts_in_order(state: dict) -> list[dict]:
    return sorted(state["charts"], key=lambda chart: int(chart["id"]))
