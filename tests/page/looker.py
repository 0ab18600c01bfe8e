"""A page of the browser under test, with a small language for what tests do and look at."""

import io
from urllib.parse import urlsplit

import numpy as np
from matplotlib.image import imread

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
window.lastActive = 0;
const active = () => { window.lastActive = performance.now(); };
for (const name of ["stroke", "fillText", "drawImage"]) {
  const old = CanvasRenderingContext2D.prototype[name];
  CanvasRenderingContext2D.prototype[name] = function (...args) { active(); return old.apply(this, args); };
}
window.WebSocket = class extends WebSocket {
  constructor(...args) {
    super(...args);
    active();
    this.addEventListener("message", ({ data }) => { active(); window.asked &&= !String(data).includes('"end"'); });
  }
  send(data) { active(); window.asked ||= new Uint8Array(data)[0] === 1; super.send(data); }
};
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

    def settle(self, ms=300):
        """Waits until nothing was drawn, asked or answered for a while: all has come, the overscan too.

        A view that was asked for is waited for, two seconds at most: some servers of tests never answer.
        """
        self.page.wait_for_timeout(80)
        # Asked again and again from here: the page's policy forbids what wait_for_function does.
        while self.page.evaluate(f"performance.now() - window.lastActive < (window.asked ? 2000 : {ms})"):
            self.page.wait_for_timeout(30)

    def key(self, *keys):
        for key in keys:
            self.page.keyboard.press(key)
        self.page.wait_for_timeout(40)

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
        clip = {
            "x": round(box["x"]),
            "y": round(box["y"]),
            "width": round(box["width"]),
            "height": round(box["height"]),
        }
        picture = np.rint(255 * imread(io.BytesIO(self.page.screenshot(clip=clip)), format="png")[..., :3])
        wanted = [int(color[i : i + 2], 16) for i in (1, 3, 5)]
        rows, columns = np.nonzero((abs(picture - wanted) <= 1).all(axis=2))
        return set(zip(columns.tolist(), rows.tolist(), strict=True))

    def text(self, selector):
        return self.page.locator(selector).inner_text()
