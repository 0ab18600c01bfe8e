// Pictures of tiles that are not curves: pixel masks, pixel lists and grids of cells.
import { FORM } from "./protocol.js";
import { heat } from "./palette.js";

function canvas(width, height) {
  const picture = document.createElement("canvas");
  picture.width = Math.max(1, width);
  picture.height = Math.max(1, height);
  return picture;
}

function painted(width, height, fill) {
  const picture = canvas(width, height);
  const context = picture.getContext("2d");
  const data = context.createImageData(picture.width, picture.height);
  fill(new Uint32Array(data.data.buffer));
  context.putImageData(data, 0, 0);
  return picture;
}

// A CSS colour #rrggbb as a word of an ImageData.
export function colorWord(hex) {
  const value = parseInt(hex.slice(1), 16);
  return ((255 << 24) | ((value & 255) << 16) | (value & 0xff00) | (value >> 16)) >>> 0;
}

// The occupied pixels of a mask or a pixel list. Each becomes a square of `size` pixels.
export function pixelPicture(tile, color, size) {
  const word = colorWord(color);
  const listed = tile.form === FORM.pixels;
  const width = listed ? tile.m & 0xffff : tile.n;
  const height = listed ? tile.m >>> 16 : tile.m;
  return painted(width, height, (words) => {
    const put = (row, column) => {
      for (let r = row; r < Math.min(height, row + size); r++) {
        words.fill(word, r * width + column, r * width + Math.min(width, column + size));
      }
    };
    if (listed) {
      for (const place of tile.places) put(Math.floor(place / width), place % width);
      return;
    }
    const stride = Math.ceil(tile.n / 32);
    tile.bits.forEach((bits, i) => {
      const row = Math.floor(i / stride);
      for (let rest = bits; rest; rest &= rest - 1) {
        put(row, (i % stride) * 32 + 31 - Math.clz32(rest & -rest));
      }
    });
  });
}

// The range of cells that colours span: amplitudes in dB down to `depth` below the largest, else from 0.
export function cellRange(cells, decibel, depth = 80) {
  let low = Infinity;
  let high = -Infinity;
  for (const cell of cells) {
    if (cell < low) low = cell;
    if (cell > high) high = cell;
  }
  if (!(low <= high)) return [0, 1];
  if (!decibel) return [Math.min(0, low), high > Math.min(0, low) ? high : low + 1];
  const top = 20 * Math.log10(Math.max(high, 1e-300));
  return [top - depth, top];
}

// A grid as colours, its lowest row at the bottom of the picture; NaN and empty cells stay clear.
export function gridPicture(tile, [low, high], decibel, clearZero) {
  const scale = 255 / (high - low);
  return painted(tile.n, tile.m, (words) => {
    for (let row = 0; row < tile.m; row++) {
      const to = (tile.m - 1 - row) * tile.n;
      for (let i = 0; i < tile.n; i++) {
        const cell = tile.cells[row * tile.n + i];
        if (cell !== cell || (clearZero && cell === 0)) continue;
        const value = decibel ? 20 * Math.log10(Math.max(cell, 1e-300)) : cell;
        words[to + i] = heat[Math.max(0, Math.min(255, Math.round((value - low) * scale)))];
      }
    }
  });
}

// The colour scale as a narrow picture, low end at the left.
export function scalePicture() {
  return painted(256, 1, (words) => words.set(heat));
}
