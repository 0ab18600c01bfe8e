// Which pixels of a view hold a sample: for dots, for clouds of two series, for time that does not ascend.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "view/columns.h"

namespace kvalo_view {

// Pixels of a view, row 0 at the top; a row is a whole number of words, pixel i is bit i % 32 of word i / 32.
struct Mask {
  size_t width;
  size_t height;
  std::vector<uint32_t> words;

  Mask(size_t w, size_t h) : width(w), height(h), words(h * ((w + 31) / 32)) {}
  size_t words_per_row() const { return (width + 31) / 32; }
  bool at(size_t row, size_t column) const {
    return (words[row * words_per_row() + column / 32] >> (column % 32) & 1U) != 0;
  }
  void set(size_t row, size_t column) {
    words[row * words_per_row() + column / 32] |= uint32_t{1} << (column % 32);
  }
  size_t count() const;
  std::vector<uint32_t> pixels() const;  // row * width + column of each, ascending
};

// Marks the pixel of every point within both ranges; a point at an upper edge lies in the last pixel. NaN and
// infinities lie in none. On all cores. x and y are of one length.
Mask occupied(std::span<const double> x, std::span<const double> y, Range across, Range up, size_t width,
              size_t height);

// The limits of the points of which neither place is NaN or infinite; lo > hi without one.
struct Box {
  Range x;
  Range y;
};
Box box_of(std::span<const double> x, std::span<const double> y);

// y of the last sample that is not later than each stamp of t, NaN before the first. Both ascend.
std::vector<double> held_at(std::span<const double> t, std::span<const double> x, std::span<const double> y);

}  // namespace kvalo_view
