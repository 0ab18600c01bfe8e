"""Colours of pictures in the light and the dark theme: the same as those of the live page."""

from dataclasses import dataclass


@dataclass(frozen=True)
class Theme:
    """Colours of paper, texts and lines, and of curves in their order."""

    back: str
    text: str
    soft: str
    grid: str
    line: str
    accent: str
    curves: tuple[str, ...]


# The Okabe-Ito hues, each dark or light enough for a contrast of 3:1 on its paper.
LIGHT = Theme(
    back="#ffffff",
    text="#1d2126",
    soft="#59616b",
    grid="#e6e8eb",
    line="#b9bfc6",
    accent="#8a4b00",
    curves=("#0072b2", "#c84f00", "#008560", "#a8509a", "#1f84bd", "#a87000", "#7d7400", "#222222"),
)
DARK = Theme(
    back="#16191d",
    text="#e8eaed",
    soft="#a4acb6",
    grid="#2b3037",
    line="#4d545d",
    accent="#ffc36b",
    curves=("#56b4e9", "#e69f00", "#2bc492", "#e08cc4", "#f0e442", "#ff7f3f", "#7aa2ff", "#f0f0f0"),
)
DASHES = ("-", (0, (5, 2)), (0, (1.5, 2)), (0, (6, 2, 1.5, 2)))


def theme_of(state: dict) -> Theme:
    """What the script has set for its kind of data; light where it has not."""
    return DARK if state["theme_live" if state["live"] else "theme"] == "dark" else LIGHT


def curve_style(theme: Theme, i: int) -> dict:
    """Colour and dashes of a chart's curve number i; dashes tell curves of one colour apart."""
    count = len(theme.curves)
    return {"color": theme.curves[i % count], "linestyle": DASHES[i // count % len(DASHES)]}


def color_of(annotation: dict, theme: Theme):
    """The colour that the script gave, or the theme's own."""
    color = annotation.get("color")
    return tuple(part / 255 for part in color) if color else theme.accent
