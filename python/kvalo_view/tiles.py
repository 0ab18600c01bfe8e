"""Tiles, what the bridge hands over of the samples of a chart, as arrays. docs/view-protocol.md describes them."""

import math
import struct
from dataclasses import dataclass

import numpy as np

from kvalo_view import _view

HEADER = struct.Struct("<HHIIIddddIIddddII")
COLUMNS, HOLD_COLUMNS, SAMPLES, MASK, PIXELS, GRID, BARS, PATH3, MESH = range(1, 10)
HOLD, DOTS = 4, 8
EMPTY, PLUS, MINUS = 1, 4, 8  # marks of a column


@dataclass
class Tile:
    """A header's fields, and the data behind it by the header's form."""

    form: int
    flags: int
    seq: int
    chart: int
    series: int
    x0: float
    x1: float
    y0: float
    y1: float
    n: int
    m: int
    before_x: float
    before_y: float
    after_x: float
    after_y: float
    ratio: int
    version: int
    data: bytes

    @classmethod
    def read(cls, message: bytes) -> "Tile":
        return cls(*HEADER.unpack_from(message), message[HEADER.size :])

    def doubles(self, count: int, start: int = 0) -> np.ndarray:
        return np.frombuffer(self.data, "<f8", count, 8 * start)

    def floats(self, count: int, offset: int = 0) -> np.ndarray:
        return np.frombuffer(self.data, "<f4", count, offset)

    def columns(self) -> tuple[np.ndarray, np.ndarray]:
        """first, min, max, last of each column, and its marks."""
        values = self.floats(4 * self.n).reshape(-1, 4).astype(float) + self.y0
        return values, np.frombuffer(self.data, "u1", self.n, 16 * self.n)

    def samples(self) -> tuple[np.ndarray, np.ndarray]:
        return self.doubles(self.n), self.doubles(self.n, self.n)

    def occupied(self) -> np.ndarray:
        """Rows of pixels from the top, true where there is a sample."""
        if self.form == MASK:
            words = np.frombuffer(self.data, "u1").reshape(self.m, -1)
            return np.unpackbits(words, axis=1, bitorder="little")[:, : self.n].astype(bool)
        width, height = self.m & 0xFFFF, self.m >> 16
        picture = np.zeros(width * height, bool)
        picture[np.frombuffer(self.data, "<u4", self.n)] = True
        return picture.reshape(height, width)

    def grid(self) -> np.ndarray:
        return self.floats(self.n * self.m).reshape(self.m, self.n)

    def path(self) -> list[np.ndarray]:
        places = self.floats(3 * self.n).reshape(3, -1).astype(float)
        return [
            axis + start for axis, start in zip(places, (self.after_x, self.after_y, self.y1), strict=True)
        ]

    def mesh(self) -> tuple[np.ndarray, np.ndarray, np.ndarray]:
        """The x axis, the z axis, and the values with one row for each z."""
        values = self.floats(self.n * self.m, 8 * (self.n + self.m)).reshape(self.m, self.n)
        return self.doubles(self.n), self.doubles(self.m, self.n), values


def draw(chart: dict, x: tuple | None, width: int, height: int, y: tuple | None = None):
    """Tiles, the sentence that says why there are none, and the range of the x axis or None."""
    a, b = x or (math.nan, math.nan)
    low, high = y or (math.nan, math.nan)
    tiles, error, whole = _view.draw(int(chart["id"]), a, b, width=width, height=height, ymin=low, ymax=high)
    return [Tile.read(message) for message in tiles], error, whole
