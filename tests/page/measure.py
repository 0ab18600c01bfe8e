"""Measures the page: frames of twelve linked charts while they are panned, first pictures, bytes.

    python tests/page/measure.py

Prints what it finds; the browser draws in software. Frames are taken while one chart is dragged with the
Shift key, all twelve following, after everything has been drawn once.
"""

import statistics
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import samples
from conftest import ASSETS, BROWSER
from playwright.sync_api import sync_playwright
from stand_in import Chart, Curve, StandIn

PAN = """async () => {
  const over = document.querySelector(".u-over");
  const box = over.getBoundingClientRect();
  const at = (type, x, target) => target.dispatchEvent(new MouseEvent(type, {bubbles: true, shiftKey: true, button: 0,
    clientX: box.left + x, clientY: box.top + 20}));
  const frames = [];
  at("mousedown", 300, over);
  let last = await new Promise(requestAnimationFrame);
  for (let i = 0; i < 240; i++) {
    at("mousemove", 300 + 150 * Math.sin(i / 30), window);
    const now = await new Promise(requestAnimationFrame);
    frames.push(now - last);
    last = now;
  }
  at("mouseup", 300, window);
  return frames;
}"""


INK = """window.inked = 0;
const stroke = CanvasRenderingContext2D.prototype.stroke;
CanvasRenderingContext2D.prototype.stroke = function (...args) {
  if (!window.inked && this.strokeStyle === "#0072b2") requestAnimationFrame(() => { window.inked ||= performance.now(); });
  return stroke.apply(this, args);
};"""


def twelve():
    t, roll, pitch = samples.flight(150_000)
    return [
        Chart("line", [Curve("Roll" if i % 2 else "Pitch", t, (roll if i % 2 else pitch) + i)])
        for i in range(12)
    ]


def main():
    with sync_playwright() as playwright:
        browser = playwright.chromium.launch(**BROWSER)
        server = StandIn(
            ASSETS, twelve(), theme="light", pages=[{"id": "11", "name": "p", "cols": 1, "charts": []}]
        )
        page = browser.new_page(viewport={"width": 1560, "height": 3100})
        page.goto(server.url)
        page.wait_for_timeout(2500)
        page.keyboard.press("v")
        page.locator("figure").first.focus()
        for _ in range(2):
            page.keyboard.press("ArrowUp")
            page.wait_for_timeout(1500)
        for _ in range(3):
            frames = sorted(page.evaluate(PAN))
            print(
                f"pan of 12 charts: median {statistics.median(frames):.1f} ms, p95 {frames[int(0.95 * len(frames))]:.1f} ms, worst {frames[-1]:.1f} ms"
            )
            page.wait_for_timeout(1500)
        server.close()
        for _ in range(3):
            server = StandIn(ASSETS, [samples.line()], theme="light")
            page = browser.new_page(viewport={"width": 1560, "height": 900})
            page.add_init_script(INK)
            page.goto(server.url)
            page.wait_for_timeout(1000)
            print(f"cold page: first picture {page.evaluate('window.inked'):.0f} ms after navigation")
            late = samples.line()
            page.evaluate("window.inked = 0")
            begin = page.evaluate("performance.now()")
            server.add(late)
            server.send_state()
            page.wait_for_timeout(800)
            print(f"chart added to an open page: ink after {page.evaluate('window.inked') - begin:.0f} ms")
            server.close()
        browser.close()


if __name__ == "__main__":
    main()
