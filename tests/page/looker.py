"""A page of the browser under test, with a small language for what tests do and look at."""

import io
import struct
import zlib
from urllib.parse import urlsplit

# Records calls on every canvas before the page draws on it.
RECORD = """
window.calls = [];
for (const name of ["moveTo", "lineTo", "rect", "arc", "fill", "stroke", "fillText", "drawImage"]) {
  const old = CanvasRenderingContext2D.prototype[name];
  CanvasRenderingContext2D.prototype[name] = function (...args) {
    if (window.recording) window.calls.push([name, name === "stroke" ? this.strokeStyle : name === "fill" ? this.fillStyle : "",
      ...args.map((a) => (typeof a === "object" ? a?.constructor?.name : a))]);
    return old.apply(this, args);
  };
}
window.recording = true;
"""


class Looker:
    def __init__(self, browser, source, *, script="", **options):
        self.server = source if hasattr(source, "url") else None
        self.context = browser.new_context(**{"viewport": {"width": 1200, "height": 700}, **options})
        self.page = self.context.new_page()
        self.page.add_init_script(RECORD + script)
        self.problems, self.hosts = [], set()
        self.page.on("pageerror", lambda error: self.problems.append(str(error)))
        self.page.on("console", lambda m: self.problems.append(m.text) if m.type == "error" else None)
        self.page.on("request", lambda r: self.hosts.add(urlsplit(r.url).hostname))
        self.page.goto(self.server.url if self.server else source)
        self.page.locator("figure, .empty").first.wait_for(state="attached")
        self.settle()

    def close(self):
        self.context.close()
        problems = [p for p in self.problems if "WebSocket connection" not in p]
        assert not problems, problems

    # ---- doing ----

    def settle(self, ms=400):
        """Waits until nothing has been drawn for a while: the overscan has come."""
        self.page.wait_for_timeout(ms)

    def key(self, *keys):
        for key in keys:
            self.page.keyboard.press(key)
        self.page.wait_for_timeout(60)

    def focus(self, i=0):
        self.page.locator("figure").nth(i).focus()

    def plot(self, i=0):
        return self.page.locator(".u-over").nth(i).bounding_box()

    def drag(self, start, end, i=0, shift=False):
        """Drags between two places, each as shares of the plot's width and height."""
        box = self.plot(i)
        at = [(box["x"] + x * box["width"], box["y"] + y * box["height"]) for x, y in (start, end)]
        if shift:
            self.page.keyboard.down("Shift")
        self.page.mouse.move(*at[0])
        self.page.mouse.down()
        self.page.mouse.move((at[0][0] + at[1][0]) / 2, (at[0][1] + at[1][1]) / 2)
        self.page.mouse.move(*at[1])
        self.page.mouse.up()
        if shift:
            self.page.keyboard.up("Shift")

    # ---- looking ----

    def calls(self, name=None):
        return [c for c in self.page.evaluate("window.calls") if name in (None, c[0])]

    def forget_calls(self):
        self.page.evaluate("window.calls = []")

    def texts(self):
        return {c[2] for c in self.calls("fillText")}

    def ink(self, color, i=0):
        """Pixels of a colour in the plot area: a set of (column, row) from its upper left corner."""
        box = self.plot(i)
        clip = {"x": round(box["x"]), "y": round(box["y"]), "width": round(box["width"]), "height": round(box["height"])}
        width, rows = pixels(self.page.screenshot(clip=clip))
        wanted = bytes.fromhex(color.lstrip("#"))
        return {(x, y) for y, row in enumerate(rows) for x in range(width) if row[3 * x : 3 * x + 3] == wanted}

    def text(self, selector):
        return self.page.locator(selector).inner_text()


def pixels(png):
    """Width and rows (three bytes a pixel) of a PNG as the browser writes it."""
    file = io.BytesIO(png[8:])
    data = b""
    while chunk := file.read(8):
        size, name = struct.unpack(">I4s", chunk)
        body = file.read(size)
        file.read(4)
        if name == b"IHDR":
            width, height, _, color = struct.unpack(">IIBB", body[:10])
        elif name == b"IDAT":
            data += body
    raw, step = zlib.decompress(data), 4 if color == 6 else 3
    line, rows, last = width * step, [], bytes(width * step)
    for y in range(height):
        kind, row = raw[y * (line + 1)], bytearray(raw[y * (line + 1) + 1 : (y + 1) * (line + 1)])
        for i in range(line):
            left, up, corner = (row[i - step], last[i], last[i - step]) if i >= step else (0, last[i], 0)
            if kind == 1:
                row[i] = (row[i] + left) & 255
            elif kind == 2:
                row[i] = (row[i] + up) & 255
            elif kind == 3:
                row[i] = (row[i] + (left + up) // 2) & 255
            elif kind == 4:
                p = left + up - corner
                best = min((abs(p - left), 0, left), (abs(p - up), 1, up), (abs(p - corner), 2, corner))
                row[i] = (row[i] + best[2]) & 255
        rows.append(bytes(row) if step == 3 else b"".join(bytes(row[i : i + 3]) for i in range(0, line, 4)))
        last = bytes(row)
    return width, rows
