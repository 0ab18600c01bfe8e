"""A small server that speaks the page's protocol with made-up data, for cases the real one cannot produce.

Everything is computed the slow and obvious way. `StandIn` runs in a thread of its own; tests set charts,
push data, break the conversation, and read which requests the page sent.
"""

import asyncio
import http
import itertools
import json
import math
import struct
import threading
import time
from pathlib import Path

import numpy as np
from websockets.asyncio.server import serve
from websockets.datastructures import Headers
from websockets.exceptions import ConnectionClosed
from websockets.http11 import Response

TOKEN = "0123456789abcdef0123456789abcdef"
OVERVIEW, PUSH, HOLD, DOTS, DECIMATED, NOTHING = 1, 2, 4, 8, 16, 32
VIEW, PROBE, STATS, ACK, VISIBLE, SPAN = 1, 2, 3, 4, 5, 6
NAN = math.nan
TYPES = {".js": "text/javascript", ".css": "text/css", ".html": "text/html; charset=utf-8"}


# ---- tiles ----


def tile(form, data, *, chart, series=0, seq=0, flags=0, x=(0, 1), y=(0, NAN), n=0, m=1, before=(NAN, NAN),
         after=(NAN, NAN), ratio=1, version=1):  # fmt: skip
    head = struct.pack(
        "<HHIII4dII4dII", form, flags, seq, chart, series, x[0], x[1], y[0], y[1], n, m, *before, *after,
        ratio, version,
    )  # fmt: skip
    assert len(head) == 96
    return head + b"".join(np.ascontiguousarray(part).tobytes() for part in data)


def columns(x, y, a, b, n, hold=False):
    """First, min, max, last and marks of n columns, straight from the definition."""
    out = np.full((n, 4), NAN)
    marks = np.ones(n, np.uint8)
    place = np.clip(((x - a) / (b - a) * n).astype(int), 0, n - 1)
    inside = (x >= a) & (x <= b)
    held = NAN
    if hold and (x < a).any():
        held = y[x < a][-1]
    order = np.searchsorted(place[inside], np.arange(n + 1))
    values = y[inside]
    for k in range(n):
        part = values[order[k] : order[k + 1]]
        if hold:
            if a + k * (b - a) / n > x[-1]:
                continue
            begin = held
            part = part if np.isnan(begin) and len(part) else np.concatenate([[begin], part])
            held = part[-1]
            if np.isnan(part).all() and a + k * (b - a) / n < x[0]:
                continue
        if not len(part):
            continue
        marks[k] = 2 * np.isnan(part).any() | 4 * np.isposinf(part).any() | 8 * np.isneginf(part).any()
        good = part[np.isfinite(part)]
        ends = [v if np.isfinite(v) else NAN for v in (part[0], part[-1])]
        out[k] = [ends[0], good.min() if len(good) else NAN, good.max() if len(good) else NAN, ends[1]]
    return out, marks


def curve_tile(x, y, view, *, chart, series, hold=False, dots=False, flags=0, version=1):
    """What a curve is answered with: samples where they are few, else columns."""
    a, b, n = view["a"], view["b"], view["width"]
    if math.isnan(a):
        a, b = float(x[0]), float(x[-1])
    if not b > a:
        a, b = a - 0.5, b + 0.5
    common = {"chart": chart, "series": series, "seq": view["seq"], "version": version, "x": (a, b)}
    inside = np.flatnonzero((x >= a) & (x <= b))
    before = after = (NAN, NAN)
    if (x < a).any():
        before = (x[x < a][-1], y[x < a][-1])
    if (x > b).any():
        after = (x[x > b][0], y[x > b][0])
    flags |= (HOLD if hold else 0) | (DOTS if dots else 0) | (0 if len(inside) else NOTHING)
    if len(inside) < 2 * n or dots:
        return tile(
            3, [x[inside], y[inside]], n=len(inside), flags=flags, before=before, after=after, **common
        )
    values, marks = columns(x, y, a, b, n, hold)
    finite = values[np.isfinite(values)]
    offset = float(finite.mean()) if len(finite) else 0.0
    data = [(values - offset).astype("<f4"), marks]
    ratio = round(len(inside) / n)
    return tile(2 if hold else 1, data, n=n, y=(offset, NAN), flags=flags | DECIMATED, ratio=ratio,
                before=before, after=after, **common)  # fmt: skip


# ---- charts ----


class Curve:
    def __init__(self, name, x, y, *, side="left", style="line", full_name="", hold=False, **more):
        self.x, self.y = np.asarray(x, float), np.asarray(y, float)
        self.json = {"name": name, "full_name": full_name, "side": side, "style": style, "hold": hold, **more}
        self.hold = hold or style == "bool"

    def state(self, key):
        finite = self.y[np.isfinite(self.y)]
        low, high = (float(finite.min()), float(finite.max())) if len(finite) else (None, None)
        ends = (float(self.x[0]), float(self.x[-1])) if len(self.x) else (None, None)
        return {"key": key, "id": str(4700 + key), "n": len(self.x), "t0": ends[0], "t1": ends[1], "ymin": low,
                "ymax": high, "ascending": True, "version": 1, **self.json}  # fmt: skip


_ids = itertools.count(1729)


class Chart:
    """A chart of curves. Kinds with other tiles give `make(view) -> [bytes]`."""

    def __init__(self, kind="line", curves=(), *, make=None, unit="s", time=True, x=None, page="11", **more):
        self.id, self.kind, self.curves, self.make, self.page = (
            str(next(_ids)),
            kind,
            list(curves),
            make,
            page,
        )
        self.unit, self.time, self.x, self.more = unit, time, x, more
        self.key = 0

    def range(self):
        if self.x:
            return self.x
        ends = [(c.x[0], c.x[-1]) for c in self.curves if len(c.x)]
        return (float(min(e[0] for e in ends)), float(max(e[1] for e in ends))) if ends else (None, None)

    def state(self):
        low, high = self.range()
        none = {"min": None, "max": None, "tick": None}
        return {
            "key": self.key, "id": self.id, "kind": self.kind, "page": self.page, "xlabel": "", "left": none,
            "right": none, "fit": "0", "legend": {"visible": True, "full": False, "x": 0, "y": 0},
            "x": {"unit": self.unit, "min": low, "max": high, "time": self.time}, "busy": False, "error": None,
            "series": [c.state(i) for i, c in enumerate(self.curves)], "objects": [], **self.more,
        }  # fmt: skip

    def tiles(self, view, flags=0):
        if self.make:
            return self.make(self, view)
        if flags & OVERVIEW:
            view = {**view, "a": NAN, "b": NAN, "width": 2048, "seq": 0}
        return [
            curve_tile(c.x, c.y, view, chart=self.key, series=i, hold=c.hold or self.kind == "bool",
                       dots=c.json["style"] == "dots", flags=flags)  # fmt: skip
            for i, c in enumerate(self.curves) if len(c.x)
        ]  # fmt: skip

    def values(self, at):
        rows = []
        for i, c in enumerate(self.curves):
            k = len(c.x) - 1 if math.isnan(at) else int(np.searchsorted(c.x, at, "right")) - 1
            y = float(c.y[k]) if k >= 0 else None
            y = (
                str(y).replace("nan", "NaN").replace("inf", "Infinity")
                if y is not None and not math.isfinite(y)
                else y
            )
            x = float(c.x[k]) if k >= 0 else None
            rows.append({"series": i, "x": x, "y": y, "near_x": x, "near_y": y})
        return rows

    def stats(self, a, b):
        rows = []
        for i, c in enumerate(self.curves):
            part = c.y[(c.x >= a) & (c.x <= b)]
            part = part[np.isfinite(part)]
            few = len(part) < 2
            rows.append({"series": i, "n": len(part), "finite": len(part), **{
                name: None if few else float(f(part)) for name, f in {
                    "min": np.min, "max": np.max, "mean": np.mean, "std": lambda p: np.std(p, ddof=1),
                    "rms": lambda p: np.sqrt(np.mean(p * p)), "slope": lambda p: p[-1] - p[0]}.items()}})  # fmt: skip
        return rows


# ---- the server ----


class StandIn:
    def __init__(self, assets: Path, charts=(), **state):
        self.assets = assets
        self.state = {
            "type": "state", "version": 1, "title": "flight.py", "pictures": True, "alive": True, "theme": None,
            "theme_live": None, "live": False, "tab": 1, "timeformat": "auto", "timelimits": None,
            "globaltime": None, "bookmarks": [], "page": "11",
            "pages": [{"id": "11", "name": "Attitude", "cols": -1, "charts": []}], "objects": [], "notices": [],
        }  # fmt: skip
        self.state.update(state)
        self.charts = []
        for chart in charts:
            self.add(chart)
        self.requests = []  # dicts, in the order they came
        self.served = []  # paths
        self.sent = 0  # bytes of tiles
        self._sessions = set()
        self._ready = threading.Event()
        self._thread = threading.Thread(target=lambda: asyncio.run(self._run()), daemon=True)
        self._thread.start()
        assert self._ready.wait(10)

    @property
    def url(self):
        return f"http://127.0.0.1:{self.port}/k/{TOKEN}/"

    def add(self, chart):
        chart.key = len(self.charts) + 1
        self.charts.append(chart)
        page = next(p for p in self.state["pages"] if p["id"] == chart.page)
        page["charts"].append(chart.key)

    def message(self):
        return {**self.state, "charts": [c.state() for c in self.charts]}

    # ---- what tests do from their thread ----

    def call(self, coroutine):
        return asyncio.run_coroutine_threadsafe(coroutine, self._loop).result(10)

    def send_state(self, **changes):
        self.state.update(changes)
        self.state["version"] += 1
        self.call(self._broadcast(json.dumps(self.message())))

    def push(self, chart):
        """Tells every page that the data of a chart changed."""
        self.call(self._push(chart))

    def gone(self):
        self.call(self._broadcast('{"type":"gone"}', close=1001))

    def drop(self):
        self.call(self._broadcast(None, close=1011))

    def wait_for(self, test, seconds=10):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            found = [r for r in list(self.requests) if test(r)]
            if found:
                return found[-1]
            time.sleep(0.01)
        raise AssertionError(f"no such request; the last ones: {self.requests[-5:]}")

    def close(self):
        self._loop.call_soon_threadsafe(self._end.set)
        self._thread.join(10)

    # ---- in the server's thread ----

    async def _run(self):
        self._loop, self._end = asyncio.get_running_loop(), asyncio.Event()
        server = await serve(self._talk, "127.0.0.1", 0, process_request=self._get, compression=None)
        self.port = server.sockets[0].getsockname()[1]
        self._ready.set()
        await self._end.wait()
        server.close(close_connections=True)

    def _get(self, connection, request):
        path = request.path.split("?")[0]
        self.served.append(request.path)
        prefix = f"/k/{TOKEN}/"
        if path == prefix + "s":
            return None
        name = path.removeprefix(prefix)
        file = self.assets / (name.removeprefix("a/") or "index.html")
        if path.startswith(prefix) and name.startswith("chart/"):
            body, kind = b"time,value\n0,1\n", "text/csv"
            if name.endswith(".png"):
                body, kind = PIXEL, "image/png"
        elif path.startswith(prefix) and file.is_file():
            body, kind = file.read_bytes(), TYPES[file.suffix]
        else:
            return connection.respond(http.HTTPStatus.FORBIDDEN, "")
        csp = (f"default-src 'self'; connect-src 'self' ws://127.0.0.1:{self.port}; img-src 'self' data: blob:; "
               "base-uri 'none'; form-action 'none'; object-src 'none'")  # fmt: skip
        headers = Headers({"Content-Type": kind, "Content-Length": str(len(body)), "Content-Security-Policy": csp,
                           "Referrer-Policy": "no-referrer", "X-Content-Type-Options": "nosniff",
                           "Cache-Control": "no-store", "Connection": "close"})  # fmt: skip
        return Response(200, "OK", headers, body)

    async def _talk(self, socket):
        session = Session(self, socket)
        self._sessions.add(session)
        try:
            await session.run()
        except ConnectionClosed:
            pass
        finally:
            self._sessions.discard(session)

    async def _broadcast(self, text, close=None):
        for session in list(self._sessions):
            if text:
                session.queue.append(text)
                await session.flush()
            if close:
                await session.socket.close(close)

    async def _push(self, chart):
        self.state["version"] += 1
        for session in list(self._sessions):
            session.dirty.add(chart.key)
            session.queue.append(json.dumps(self.message()))
            await session.flush()


class Session:
    """One conversation: batches go out only when the last one was acknowledged."""

    def __init__(self, server, socket):
        self.server, self.socket = server, socket
        self.queue = [json.dumps(server.message())]
        self.views, self.probes, self.stats, self.last = {}, {}, {}, {}
        self.dirty, self.overviews = set(), set()
        self.batch = self.acknowledged = 0

    async def run(self):
        await self.flush()
        async for data in self.socket:
            kind, flags, _, seq, chart, width, height, a, b, c, d = struct.unpack("<BBHIIHH4d", data)
            request = {"kind": kind, "flags": flags, "seq": seq, "chart": chart, "width": width, "height": height,
                       "a": a, "b": b, "c": c, "d": d}  # fmt: skip
            self.server.requests.append(request)
            if kind == ACK:
                self.acknowledged = seq
            elif kind == VIEW and flags & 2:
                self.last.pop(chart, None)
            elif kind in (VIEW, PROBE, STATS):
                {VIEW: self.views, PROBE: self.probes, STATS: self.stats}[kind][chart] = request
            await self.flush()

    async def flush(self):
        if self.acknowledged < self.batch:
            return
        out, self.queue = self.queue, []
        charts = {c.key: c for c in self.server.charts}
        for key, view in self.views.items():
            if key not in charts or charts[key].more.get("busy"):
                continue
            out += charts[key].tiles(view)
            if key not in self.overviews and not charts[key].make:
                out += charts[key].tiles(view, OVERVIEW)
                self.overviews.add(key)
            self.last[key] = view
        for key in self.dirty & self.last.keys() - self.views.keys():
            view = dict(self.last[key])
            if view["flags"] & 1:
                end = charts[key].range()[1]
                view["a"], view["b"] = end - (view["b"] - view["a"]), end
            out += charts[key].tiles(view, PUSH) + charts[key].tiles(view, OVERVIEW)
        for name, asked in (("values", self.probes), ("stats", self.stats)):
            for key, r in asked.items():
                rows = charts[key].values(r["a"]) if name == "values" else charts[key].stats(r["a"], r["b"])
                out.append(
                    json.dumps({"type": name, "chart": key, "seq": r["seq"], "t": None, "values": rows})
                )
        self.views, self.probes, self.stats, self.dirty = {}, {}, {}, set()
        if not out:
            return
        self.batch += 1
        for part in out:
            self.server.sent += len(part) if isinstance(part, bytes) else 0
            await self.socket.send(part)
        await self.socket.send(json.dumps({"type": "end", "batch": self.batch}))


PIXEL = bytes.fromhex(
    "89504e470d0a1a0a0000000d4948445200000001000000010802000000907753de0000000c4944415408d763f8cfc000000301"
    "0100c9fe92ef0000000049454e44ae426082"
)
