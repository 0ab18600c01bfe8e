// Lookup tables: finding the segment of an input, and the value in it.
#include "runtime/num_interpolate.h"

#include <algorithm>

#include "runtime/par.h"

namespace mirn3::num {

namespace {

// Between the values at `index` and the next one; a fraction of 0 stands for the value at `index` alone.
struct Place {
  size_t index;
  double fraction;
};

// The last breakpoint that is not greater than x, for x within bp[0] ... bp[n - 1].
size_t segment(double x, const double* bp, size_t n) {
  const auto above = static_cast<size_t>(std::upper_bound(bp, bp + n, x) - bp);
  return std::clamp<size_t>(above, 1, n) - 1;
}

double fraction_in(double x, const double* bp, size_t index) {
  const double width = bp[index + 1] - bp[index];
  return width > 0 ? (x - bp[index]) / width : 0;
}

// x is not NaN. `hint` is the segment of the input before, which is often that of the next one too.
template <bool clip>
Place locate(double x, const double* bp, size_t n, size_t& hint) {
  const size_t last = n - 1;
  if (x < bp[0]) {
    if (clip || n == 1) return {0, 0};
    return {0, fraction_in(x, bp, 0)};
  }
  if (!(x < bp[last])) {
    if (clip || n == 1 || x == bp[last] || !(bp[last] > bp[last - 1])) return {last, 0};
    return {last - 1, fraction_in(x, bp, last - 1)};
  }
  if (!(bp[hint] <= x && x < bp[hint + 1])) hint = std::min(segment(x, bp, n), last - 1);
  return {hint, fraction_in(x, bp, hint)};
}

double between(double a, double b, double fraction) {
  // Without the test an infinite fraction, or infinite values, would turn a known value into NaN.
  return fraction == 0 || a == b ? a : a + fraction * (b - a);
}

template <bool clip>
double value1d(double x, const double* bp, const double* val, size_t n, size_t& hint) {
  if (x != x) return x;
  const Place p = locate<clip>(x, bp, n, hint);
  return p.fraction == 0 ? val[p.index] : between(val[p.index], val[p.index + 1], p.fraction);
}

template <bool clip>
double value2d(double x1, double x2, const double* bp1, const double* bp2, const double* val, size_t rows,
               size_t cols) {
  if (x1 != x1) return x1;
  if (x2 != x2) return x2;
  size_t hint1 = 0;
  size_t hint2 = 0;
  const Place row = locate<clip>(x1, bp1, rows, hint1);
  const Place col = locate<clip>(x2, bp2, cols, hint2);
  const auto along = [&](const double* values) {
    return col.fraction == 0 ? values[col.index]
                             : between(values[col.index], values[col.index + 1], col.fraction);
  };
  const double* at = val + row.index * cols;
  return row.fraction == 0 ? along(at) : between(along(at), along(at + cols), row.fraction);
}

template <bool clip>
void values1d(std::span<const double> x, std::span<const double> bp, std::span<const double> val,
              std::span<double> out) {
  constexpr size_t least = 1 << 15;
  par::ranges(x.size(), least, [&](size_t first, size_t last) {
    size_t hint = 0;
    for (size_t i = first; i < last; ++i)
      out[i] = value1d<clip>(x[i], bp.data(), val.data(), bp.size(), hint);
  });
}

}  // namespace

double interpolate1d_clip(double x, const double* bp, const double* val, size_t n) {
  size_t hint = 0;
  return value1d<true>(x, bp, val, n, hint);
}

double interpolate1d_extend(double x, const double* bp, const double* val, size_t n) {
  size_t hint = 0;
  return value1d<false>(x, bp, val, n, hint);
}

double interpolate2d_clip(double x1, double x2, const double* bp1, const double* bp2, const double* val,
                          size_t rows, size_t cols) {
  return value2d<true>(x1, x2, bp1, bp2, val, rows, cols);
}

double interpolate2d_extend(double x1, double x2, const double* bp1, const double* bp2, const double* val,
                            size_t rows, size_t cols) {
  return value2d<false>(x1, x2, bp1, bp2, val, rows, cols);
}

void interpolate1d(std::span<const double> x, std::span<const double> bp, std::span<const double> val,
                   bool clip, std::span<double> out) {
  clip ? values1d<true>(x, bp, val, out) : values1d<false>(x, bp, val, out);
}

}  // namespace mirn3::num
