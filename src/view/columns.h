// A curve as columns of device pixels: first, least, greatest and last value of each, by time.
//
// Source: Jugel, Jerzak, Hackenbroich & Markl, M4: A Visualization-Oriented Time Series Data Aggregation,
// VLDB 2014. Extremes are exact at any width. docs/view-protocol.md says what a column means.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "view/pyramid.h"

namespace kvalo_view {

// A range of an x axis.
struct Range {
  double lo;
  double hi;
};

// Samples on ascending stamps, with their pyramid.
struct Curve {
  std::span<const double> x;
  std::span<const double> y;
  const Pyramid& pyramid;
};

// NaN where a sample is not finite, or is missing.
struct Column {
  double first;
  double lo;
  double hi;
  double last;
  uint8_t marks;
};

struct Columns {
  std::vector<Column> columns;
  size_t samples;             // in the range
  double before_x, before_y;  // the last sample before the range; NaN without one
  double after_x, after_y;    // the first one after it
};

// The samples in the range, both ends included.
struct Part {
  size_t first;
  size_t last;  // one past
  size_t size() const { return last - first; }
};
Part part_of(std::span<const double> x, Range range);

// Column k covers the stamps from its left edge up to the next edge, without it; the last one has the end
// of the range as well. range.lo < range.hi, both finite; width >= 1.
Columns line_columns(const Curve& curve, Range range, size_t width);

// The same for values that hold until the next sample, the last one only at its own place: the value held at
// a left edge belongs to the column.
Columns hold_columns(const Curve& curve, Range range, size_t width);

// The left edge of column k of `width`; for k = width, the end of the range.
inline double edge(Range range, size_t k, size_t width) {
  if (k == width) return range.hi;
  return range.lo + (range.hi - range.lo) * (static_cast<double>(k) / static_cast<double>(width));
}

}  // namespace kvalo_view
