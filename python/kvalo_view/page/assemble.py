"""Writes a page with its data into one HTML file that needs no server.

    assemble(assets, state, tiles) -> str

`assets` is the folder that scripts/page_assets.py made, `state` the JSON text of a state message, and
`tiles` the binary tile messages of docs/view-protocol.md, headers included: one for each curve, columns
with 16 384 of them over the whole range, which zoom eight times deep on a screen; everything else as the
server sends it for the whole range.

Columns are packed: four rows (first, min, max, last) of 16-bit steps between the curve's lowest and
highest value, each as the difference to the one before, then the marks, deflated. The lowest value of a
column is rounded down and the highest up, so no spike becomes smaller; what is shown of a value is exact to
1/65534 of the curve's whole range. 65535 stands for "no finite value". Other tiles are only deflated.
"""

import base64
import html
import json
import math
import struct
import zlib
from array import array
from pathlib import Path

HEADER = 96
COLUMNS = (1, 2)
SPACE = ("line3d", "mesh")
GAP = 65535


def pack_columns(message: bytes) -> bytes:
    """Columns of a tile message as 16-bit steps, see above."""
    (count,) = struct.unpack_from("<I", message, 48)
    (offset,) = struct.unpack_from("<d", message, 32)
    values = array("f")
    values.frombytes(message[HEADER : HEADER + 16 * count])
    marks = message[HEADER + 16 * count : HEADER + 17 * count]
    finite = [v for v in values if math.isfinite(v)]
    low, high = (min(finite), max(finite)) if finite else (0.0, 0.0)
    scale = (GAP - 1) / (high - low) if high > low else 0.0
    rows = bytearray()
    for row, rounded in enumerate((round, math.floor, math.ceil, round)):
        steps = [
            min(rounded((v - low) * scale), GAP - 1) if math.isfinite(v) else GAP for v in values[row::4]
        ]
        differences = ((b - a) & 0xFFFF for a, b in zip([0, *steps], steps, strict=False))
        rows += array("H", differences).tobytes()
    return message[:HEADER] + struct.pack("<2d", low + offset, high + offset) + bytes(rows) + marks


def pack(message: bytes) -> dict:
    """A tile message as it stands in the file."""
    if len(message) < HEADER:
        raise ValueError(f"a tile message has at least {HEADER} bytes, this one has {len(message)}")
    columns = struct.unpack_from("<H", message)[0] in COLUMNS
    data = zlib.compress(pack_columns(message) if columns else bytes(message), 9)
    return {"packed": columns, "data": base64.b64encode(data).decode("ascii")}


def script_text(text: str) -> str:
    """Text that may stand inside a script element: nothing in it can end the element."""
    return text.replace("<", "\\u003c")


def assemble(assets: Path, state: str, tiles: list[bytes]) -> str:
    """The page as one HTML text. Raises FileNotFoundError where the page's assets were not built."""
    assets = Path(assets)
    if not (assets / "embed.js").is_file():
        raise FileNotFoundError(
            f"{assets} does not hold the page: kvalo_view was built without it. Build again with npm installed"
        )
    contents = json.loads(state)
    data = json.dumps({"state": contents, "tiles": [pack(tile) for tile in tiles]}, separators=(",", ":"))
    scripts = ["uPlot.iife.min.js", "embed.js"]
    if any(chart["kind"] in SPACE for chart in contents["charts"]):
        scripts.insert(1, "embed-space.js")
    lines = ["<!doctype html>", '<html lang="en">', '<meta charset="utf-8">']
    lines.append('<meta name="viewport" content="width=device-width, initial-scale=1">')
    lines.append('<meta name="color-scheme" content="light dark">')
    lines.append(f"<title>{html.escape(contents.get('title') or 'kvalo')}</title>")
    lines.append('<link rel="icon" href="data:,">')
    lines.append(f"<style>{(assets / 'style.css').read_text('utf-8')}</style>")
    lines.append('<div id="app"></div>')
    lines.append(f'<script type="application/json" id="kvalo-data">{script_text(data)}</script>')
    for name in scripts:
        # What these hold is checked when they are built: none has the text that ends a script.
        lines.append(f"<script>{(assets / name).read_text('utf-8')}</script>")
    return "\n".join(lines) + "\n"
