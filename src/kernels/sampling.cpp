// Estimates how often a series is sampled.
#include "kernels/sampling.h"

#include <algorithm>
#include <array>
#include <limits>

namespace mirn2::kernels {

namespace {

// Ascending; a NaN stays where it is, as no comparison moves it.
void insertion_sort(std::span<double> values) {
  for (size_t i = 1; i < values.size(); ++i) {
    for (size_t j = i; j > 0 && values[j] < values[j - 1]; --j) std::swap(values[j], values[j - 1]);
  }
}

}  // namespace

double representative_period(std::span<const double> t) {
  constexpr size_t slots = 10;
  std::array<double, slots> intervals;
  intervals.fill(std::numeric_limits<double>::infinity());
  const size_t count = std::min(t.size(), slots) - 1;
  for (size_t i = 0; i < count; ++i) intervals[i] = t[i + 1] - t[i];
  if (count == slots - 1) {
    insertion_sort(intervals);
    return intervals[5];
  }
  insertion_sort({intervals.data(), count});
  return intervals[count / 2];
}

double sampling_period(std::span<const double> t) {
  const size_t n = t.size();
  if (t[1] == t[0]) return t[n - 1] - t[n - 2];
  return n >= 10 ? representative_period(t) : t[1] - t[0];
}

}  // namespace mirn2::kernels
