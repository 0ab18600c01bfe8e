// Conditioning of the values of one series: logic with memory, limits, selection, interpolation.
//
// t are the time stamps, y the values, out as many results; durations have the unit of the stamps. Every
// kernel takes any number of samples, none included, and any time stamps: decreasing, NaN and infinite
// ones follow from the stated comparisons, in which everything ordered is false for NaN. Logic results
// are 0 and 1. A value is zero when it equals 0.0, so NaN is not. The cost never depends on the values.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "kernels/axis.h"

namespace mirn2::kernels {

struct Limits {
  double lower;
  double upper;
};

struct Persistence {
  double on;
  double off;
};

// Samples that are not zero give 1 once they have lasted for `on` (>=), counted from the first of them;
// zeros give 1 while they have lasted for less than `off`. The first result is 0, and both times start at
// the first stamp.
void debounce(Axis t, Axis y, Persistence persistence, Result out);

// 1 from a value above `upper` on, 0 from one below `lower` on, which is looked at last; 0 at the start. With
// crossed limits, `lower` above `upper`, a value above both gives 0 as well. NaN changes nothing.
void hysteresis(Axis y, Limits limits, Result out);

// A value above `upper` gives `upper`, else one below `lower` gives `lower`; NaN stays.
void clamp(Axis y, Limits limits, Result out);

// 0 for the stamps at the start that are below `pers`. After them: 1 when the last value outside the
// limits, looked for from the first sample on, is more than `pers` ago. Without one it is infinitely long
// ago. NaN counts as inside.
void in_range(Axis t, Axis y, Limits limits, double pers, Result out);

// 0 for the stamps at the start that are below `pers`. After them: 0 when this sample is NaN, or when
// going back from it a different one comes before the first that is not less than `pers` ago (a stamp whose
// distance is NaN counts as such) and before the start of the series; else 1. Without a positive `pers`
// nothing is looked at: all 1.
void stale(Axis t, Axis y, double pers, Result out);

// (b - a) of the way from a to b: y = 0 gives a, y = 1 gives b, monotonic in between and beyond. NaN in any
// of the three gives NaN; an infinite y gives (b - a) * y. Infinite a or b go through the arithmetic.
void lerp(Axis y, double a, double b, Result out);

// A comparison with a limit, written as "in the closed range or not". Every ordered comparison with NaN
// is false, as a value or as the limit.
struct Test {
  double lowest;
  double highest;
  bool inverted;

  // "eq", "ne", "lt", "le", "gt" or "ge" in any case; everything else means "eq".
  static Test of(std::string_view comparison, double limit);
};

// Which samples are left when those are dropped for which one of the tests is true: counts first, so that
// the caller can make room for just as many.
class Selection {
 public:
  Selection(Axis y, Test first, Test second);

  size_t size() const noexcept { return size_; }

  // Copies the samples that are left, in their order, to x_out and y_out of size() elements each.
  void copy(Axis t, Axis y, Result x_out, Result y_out) const;

 private:
  struct Part {
    size_t first;
    size_t last;
    size_t place;  // of its first sample that is left
    size_t left;
  };

  Test first_;
  Test second_;
  std::vector<Part> parts_;
  size_t size_ = 0;
};

}  // namespace mirn2::kernels
