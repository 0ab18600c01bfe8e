"""Charts of every kind with made-up data, for tests and for looking at the page."""

import numpy as np
from stand_in import NAN, Chart, Curve, tile


def flight(n=200_000, seconds=600.0, start=0.0):
    rng = np.random.default_rng(7)
    t = start + np.sort(rng.uniform(0, seconds, n))
    u = t - start
    roll = 20 * np.sin(u / 17) * np.exp(-u / 900) + rng.normal(0, 0.7, n)
    pitch = 6 * np.sin(u / 41 + 1) + rng.normal(0, 0.3, n)
    return t, roll, pitch


def line(**more):
    t, roll, pitch = flight()
    return Chart("line", [Curve("Roll", t, roll, full_name="ATT.Roll"), Curve("Pitch", t, pitch)], **more)


def grid_chart(kind, **more):
    def make(chart, view):
        n, m = 120, 80
        x, y = np.meshgrid(np.linspace(-2, 2, n), np.linspace(-2, 2, m))
        cells = np.exp(-(x**2 + y**2)) * (400 if kind == "heatmap" else 1) + (
            1e-5 if kind == "spectro" else 0
        )
        cells[cells < 1e-6] = 0
        return [
            tile(6, [cells.astype("<f4")], chart=chart.key, seq=view["seq"], x=chart.x, y=(0, 50), n=n, m=m)
        ]

    curves = [Curve("Speed", [0, 1], [0, 1]), Curve("Current", [0, 1], [0, 1])]
    time = kind == "spectro"
    return Chart(kind, curves[:1] if time else curves, make=make, unit="s" if time else "", time=time,
                 x=(0, 600) if time else (-2, 2), **more)  # fmt: skip


def histogram():
    def make(chart, view):
        centre = np.linspace(-19, 19, 20)
        tiles = []
        for key, width in enumerate((6, 9)):
            count = np.round(4000 * np.exp(-((centre / width) ** 2)))
            tiles.append(
                tile(7, [centre, count], chart=chart.key, series=key, seq=view["seq"], x=(-20, 20), n=20)
            )
        return tiles

    curves = [Curve("Roll", [0], [0], style="bar"), Curve("Pitch", [0], [0], style="outline")]
    return Chart("hist", curves, make=make, unit="", time=False, x=(-20, 20))


def bode():
    def make(chart, view):
        f = np.linspace(0.1, 50, 900)
        response = 1 / (1 - (f / 12) ** 2 + 0.3j * f / 12)
        rows = [20 * np.log10(abs(response)), np.degrees(np.angle(response)), np.clip(1.05 - f / 60, 0, 1)]
        return [tile(3, [f, row], chart=chart.key, series=i, seq=view["seq"], x=(0.1, 50), n=len(f))
                for i, row in enumerate(rows)]  # fmt: skip

    curves = [Curve("Stick", [0], [0]), Curve("Roll rate", [0], [0])]
    return Chart("bode", curves, make=make, unit="Hz", time=False, x=(0.1, 50))


def spectrum():
    f = np.linspace(0, 100, 4000)
    y = 1 / (1 + ((f - 23) / 0.7) ** 2) + 0.02 / (0.1 + f)
    return Chart("fft", [Curve("AccZ", f, y)], unit="Hz", time=False)


def cross():
    rng = np.random.default_rng(3)
    x = np.sort(rng.normal(0, 4, 3000))
    flat = Curve("Speed", [-12, 12], [0, 1])
    chart = Chart("cross", [flat, Curve("Current", x, 0.4 * x**2 + rng.normal(0, 2, 3000), style="dots")],
                  unit="", time=False, x=(-14, 14))  # fmt: skip

    def make(chart, view):
        c = chart.curves[1]
        return [
            tile(3, [c.x, c.y], chart=chart.key, series=1, seq=view["seq"], flags=8, x=(-14, 14), n=len(c.x))
        ]

    chart.make = make
    return chart


def mask(form=4):
    """A cloud of two pixels: the lowest left one and the highest right one."""

    def make(chart, view):
        w, h = view["width"], view["height"]
        common = {"chart": chart.key, "series": 0, "seq": view["seq"], "x": (0, 10), "y": (0, 1), "ratio": 50}
        if form == 5:
            places = np.array([w - 1, (h - 1) * w], "<u4")
            return [tile(5, [places], n=2, m=(h << 16) + w, **common)]
        stride = (w + 31) // 32
        bits = np.zeros((h, stride), "<u4")
        bits[h - 1, 0] = 1
        bits[0, (w - 1) // 32] = 1 << ((w - 1) % 32)
        return [tile(4, [bits], n=w, m=h, **common)]

    return Chart(
        "line",
        [Curve("Dots", [0, 10], [0, 1], style="dots")],
        make=make,
        left={"min": 0, "max": 1, "tick": None},
    )


def states():
    t = np.linspace(0, 600, 5000)
    armed = ((t > 40) & (t < 550)).astype(float)
    chatter = (np.sin(t * 3) > 0).astype(float)
    gps = np.where(t < 100, NAN, (t > 130).astype(float))
    return Chart("bool", [Curve("Armed", t, armed, hold=True), Curve("Chatter", t, chatter, hold=True),
                          Curve("GPS fix", t[::100], gps[::100], hold=True)])  # fmt: skip


def steps():
    t = np.arange(0, 600, 20.0)
    mode = np.floor((t / 90) % 4)
    names = [[0, "MANUAL"], [1, "STABILIZE"], [2, "AUTO"], [3, "RTL"]]
    return Chart("line", [Curve("Mode", t, mode, style="bool", hold=True, states=names)],
                 left={"min": -0.3, "max": 3.3, "tick": 1})  # fmt: skip


def correlation():
    lag = np.linspace(-5, 5, 2000)
    curves = [
        Curve("Stick", lag, np.exp(-((lag - 0.4) ** 2)) * np.cos(6 * (lag - 0.4))),
        Curve("Roll", [0], [0]),
    ]
    chart = Chart("xcorr", curves, time=False, x=(-5, 5))
    chart.make = lambda c, view: [
        tile(3, [lag, curves[0].y], chart=c.key, seq=view["seq"], x=(-5, 5), n=2000)
    ]
    return chart


def spiral():
    s = np.linspace(0, 30, 3000)
    parts = [(np.cos(s) * s).astype("<f4"), (np.sin(s) * s).astype("<f4"), s.astype("<f4")]

    def make(chart, view):
        return [tile(8, parts, chart=chart.key, seq=view["seq"], n=3000, after=(0.0, 0.0), y=(0.0, 0.0))]

    return Chart("line3d", [Curve(n, s, s) for n in ("East", "North", "Up")], make=make, unit="", time=False)


def surface():
    x, z = np.linspace(-3, 3, 60), np.linspace(0, 5, 40)
    cells = np.sin(x[None, :]) * np.cos(z[:, None])

    def make(chart, view):
        return [tile(9, [x, z, cells.astype("<f4")], chart=chart.key, seq=view["seq"], n=60, m=40)]

    return Chart("mesh", [Curve("Torque map", [0], [0])], make=make, unit="", time=False)


def synoptic():
    t = np.linspace(0, 600, 1000)
    objects = [{"x": 30, "y": 20, "width": 150, "min": 0.0, "max": 100.0, "color": [0, 120, 200]},
               {"x": 230, "y": 60, "width": None, "min": None, "max": None, "color": None}]  # fmt: skip
    curves = [
        Curve("Battery", t, 100 - t / 8, object=objects[0]),
        Curve("Altitude", t, 80 * np.sin(t / 200), object=objects[1]),
    ]
    return Chart("synoptic", curves)


EVERY_KIND = {
    "line": line, "steps": steps, "bool": states, "cross": cross, "fft": spectrum, "bode": bode,
    "xcorr": correlation, "hist": histogram, "heatmap": lambda: grid_chart("heatmap"),
    "spectro": lambda: grid_chart("spectro"), "line3d": spiral, "mesh": surface, "synoptic": synoptic,
}  # fmt: skip
