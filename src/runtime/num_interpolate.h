// Lookup tables: linear interpolation in one dimension, bilinear in two.
//
// Breakpoints ascend; equal ones make a step, at which the value of the last of them holds. Exactly at a
// breakpoint the table's value is returned as it is. Outside the breakpoints the clip form holds the value
// at the edge; the extend form continues the line through the two outermost breakpoints (or holds the value
// at the edge where these are equal or there is only one). A NaN gives NaN. Breakpoints in another order, or
// NaN among them, give some value, never a read outside the table.
#pragma once

#include <cstddef>
#include <span>

#include "kvalo/export.h"

namespace mirn3::num {

// The table holds n >= 1 breakpoints and as many values.
MIRN3_API double interpolate1d_clip(double x, const double* bp, const double* val, size_t n);
MIRN3_API double interpolate1d_extend(double x, const double* bp, const double* val, size_t n);

// val[row * cols + col], rows and cols >= 1; x1 lies among the rows' breakpoints bp1, x2 among the columns'
// bp2. The extend form continues the bilinear surface of the outermost cell.
MIRN3_API double interpolate2d_clip(double x1, double x2, const double* bp1, const double* bp2,
                                    const double* val, size_t rows, size_t cols);
MIRN3_API double interpolate2d_extend(double x1, double x2, const double* bp1, const double* bp2,
                                      const double* val, size_t rows, size_t cols);

// The same for many inputs at once, on all cores: out[i] is the table's value at x[i]. out may be x.
MIRN3_API void interpolate1d(std::span<const double> x, std::span<const double> bp,
                             std::span<const double> val, bool clip, std::span<double> out);

}  // namespace mirn3::num
