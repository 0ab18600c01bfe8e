// Cuts a range of time into columns and asks the pyramid for the extremes of each.
#include "view/columns.h"

#include <algorithm>
#include <cmath>

#include "runtime/par.h"

namespace kvalo_view {

namespace {

constexpr size_t least_columns = 400;  // for which a thread pays off
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

double finite_or_nan(double value) { return std::isfinite(value) ? value : nan; }

uint8_t mark_of(double value) {
  Extremes one;
  one.add(value);
  return one.marks;
}

Column column_of(const Curve& curve, size_t first, size_t last) {
  if (first == last) return {nan, nan, nan, nan, mark_empty};
  const Extremes extremes = curve.pyramid.range(first, last);
  const bool none = extremes.empty();
  return {finite_or_nan(curve.y[first]), none ? nan : extremes.lo, none ? nan : extremes.hi,
          finite_or_nan(curve.y[last - 1]), extremes.marks};
}

// Adds what is held when the column begins.
void hold(Column& column, double held, bool is_empty) {
  const double value = finite_or_nan(held);
  if (is_empty) {
    column = {value, value, value, value, mark_of(held)};
    return;
  }
  column.first = value;
  column.lo = std::fmin(column.lo, value);
  column.hi = std::fmax(column.hi, value);
  column.marks |= mark_of(held);
}

template <typename Finish>
Columns columns_of(const Curve& curve, Range range, size_t width, const Finish& finish) {
  const Part part = part_of(curve.x, range);
  Columns result{{}, part.size(), nan, nan, nan, nan};
  result.columns.resize(width);
  mirn3::par::ranges(width, least_columns, [&](size_t from, size_t to) {
    // Samples are looked for where the last column's length says, which is nearly right for most recordings.
    size_t length = part.size() / width;
    const auto start_of = [&](size_t k, size_t hint) {
      if (k == 0) return part.first;
      if (k == width) return part.last;
      return std::clamp(lower_index(curve.x, edge(range, k, width), hint), part.first, part.last);
    };
    size_t at = start_of(from, part.first + from * length);
    for (size_t k = from; k < to; ++k) {
      const size_t end = std::max(at, start_of(k + 1, at + length));
      result.columns[k] = column_of(curve, at, end);
      finish(result.columns[k], k, at, end);
      length = end - at;
      at = end;
    }
  });
  if (part.first > 0) {
    result.before_x = curve.x[part.first - 1];
    result.before_y = curve.y[part.first - 1];
  }
  if (part.last < curve.x.size()) {
    result.after_x = curve.x[part.last];
    result.after_y = curve.y[part.last];
  }
  return result;
}

}  // namespace

Part part_of(std::span<const double> x, Range range) {
  const size_t first = lower_index(x, range.lo, x.size() / 2);
  return {first, std::max(first, upper_index(x, range.hi, first))};
}

Columns line_columns(const Curve& curve, Range range, size_t width) {
  return columns_of(curve, range, width, [](Column&, size_t, size_t, size_t) {});
}

Columns hold_columns(const Curve& curve, Range range, size_t width) {
  return columns_of(curve, range, width, [&](Column& column, size_t k, size_t first, size_t last) {
    const double left = edge(range, k, width);
    const bool is_empty = first == last;
    if (first == 0) return;                             // nothing is held yet
    if (is_empty && left > curve.x.back()) return;      // the recording has ended
    if (!is_empty && !(curve.x[first] > left)) return;  // a sample right at the edge
    hold(column, curve.y[first - 1], is_empty);
  });
}

}  // namespace kvalo_view
