"""Draws what a script writes on charts: circles, rectangles, texts, flags, marks and data tips."""

from matplotlib.collections import EllipseCollection
from matplotlib.patches import Rectangle

from kvalo_view.panel import Panel, plain
from kvalo_view.state import HUGE, number
from kvalo_view.theme import color_of

ON_TOP = 6  # above curves
SIZE = 9


def label(panel: Panel, axes, x, y, text: str, color, **options):
    box = {"facecolor": panel.theme.back, "edgecolor": "none", "alpha": 0.75, "pad": 1}
    options = {"fontsize": SIZE, "zorder": ON_TOP, "clip_on": True} | options
    return axes.annotate(plain(text), (x, y), color=color, bbox=box, **options)


def is_inside(axes, x=None, y=None) -> bool:
    """Whether a place is within the limits of the axes: texts far outside cannot even be laid out."""
    return all(
        value is None or min(limits) <= value <= max(limits)
        for value, limits in ((x, axes.get_xlim()), (y, axes.get_ylim()))
    )


def circle(panel: Panel, axes, item: dict, color) -> None:
    size = [number(item["diameter"])]
    place = [(number(item["x"]), number(item["y"]))]
    style = {"facecolors": "none", "edgecolors": [color], "linewidths": 1.5, "zorder": ON_TOP}
    # Round on the paper; its diameter is one of the x axis.
    axes.add_collection(
        EllipseCollection(
            size, size, [0], units="x", offsets=place, offset_transform=axes.transData, **style
        ),
        autolim=False,
    )


def rectangle(panel: Panel, axes, item: dict, color) -> None:
    width, height = number(item["width"]), number(item["height"])
    corner = (number(item["x"]) - width / 2, number(item["y"]) - height / 2)
    axes.add_patch(
        Rectangle(corner, width, height, fill=False, edgecolor=color, linewidth=1.5, zorder=ON_TOP)
    )


def text(panel: Panel, axes, item: dict, color) -> None:
    x, y = number(item["x"]), number(item["y"])
    if is_inside(axes, x, y):
        label(panel, axes, x, y, item["text"], color, va="center")


def flag(panel: Panel, axes, item: dict, color) -> None:
    style = {"color": color, "linewidth": 1.2, "linestyle": (0, (5, 3)), "zorder": ON_TOP}
    offset = {"textcoords": "offset points"}
    if item["x"] is not None:
        x = number(item["x"])
        if not is_inside(axes, x):
            return
        axes.axvline(x, **style)
        across = axes.get_xaxis_transform()
        label(panel, axes, x, 1, item["text"], color, xycoords=across, xytext=(4, -4), va="top", **offset)
    else:
        y = number(item["y"])
        if not is_inside(axes, None, y):
            return
        axes.axhline(y, **style)
        up = axes.get_yaxis_transform()
        label(
            panel,
            axes,
            1,
            y,
            item["text"],
            color,
            xycoords=up,
            xytext=(-4, 3),
            ha="right",
            va="bottom",
            **offset,
        )


def mark(panel: Panel, axes, item: dict, color) -> None:
    low, high = axes.get_xlim()
    x, end = number(item["x"]), number(item["x"]) + number(item["width"])
    if not (x <= high and end >= low):
        return
    x = max(x, low)
    axes.axvspan(x, min(end, high), color=color, alpha=0.16, linewidth=0, zorder=0.5)
    across = {"xycoords": axes.get_xaxis_transform(), "textcoords": "offset points"}
    label(panel, axes, x, 0, item["text"], panel.theme.text, xytext=(4, 4), va="bottom", **across)


def data_tip(panel: Panel, axes, item: dict, color) -> None:
    if item["y"] is None or item["series"] is None:
        return
    axes = panel.on_side(panel.series(item["series"])["side"])
    x, y = number(item["x"]), number(item["y"])
    if not is_inside(axes, x):
        return
    axes.plot([x], [y], "o", markersize=6, color=color, markeredgecolor=panel.theme.back, zorder=ON_TOP)
    words = f"{item['text']} {y:.7g}"
    label(panel, axes, x, y, words, color, xytext=(6, 8), textcoords="offset points")


PAINTERS = {
    "circle": circle,
    "rectangle": rectangle,
    "text": text,
    "flag": flag,
    "mark": mark,
    "datatip": data_tip,
}


def draw(panel: Panel) -> None:
    """All that belongs on this chart; what has a time only counts on time axes."""
    flat = panel.left is not None and panel.left.name != "3d" and panel.chart["kind"] != "synoptic"
    if not flat:
        return
    limits = panel.left.get_xlim(), panel.left.get_ylim()
    everywhere = panel.state["objects"] if panel.chart["x"]["time"] else []
    for item in [*everywhere, *panel.chart["objects"]]:
        painter = PAINTERS.get(item["type"])
        places = (item.get(name) for name in ("x", "y", "width", "height", "diameter"))
        if painter is not None and all(p is None or abs(number(p)) <= HUGE for p in places):
            painter(panel, panel.left, item, color_of(item, panel.theme))
    panel.left.set(xlim=limits[0], ylim=limits[1])
