// Sums, counts, rounding and scaling of plain spans.
#include "kernels/array.h"

#include <algorithm>
#include <cmath>

namespace mirn2::kernels {

namespace {

template <typename Test>
uint64_t count_if(std::span<const double> a, Test test) {
  uint64_t count = 0;
  for (const double v : a) count += test(v) ? 1 : 0;
  return count;
}

}  // namespace

double sum(std::span<const double> a) {
  double total = 0.0;
  for (const double v : a) total += v;
  return total;
}

double mean(std::span<const double> a) {
  const auto n = static_cast<double>(a.size());
  double total = 0.0;
  for (const double v : a) total += v / n;
  return total;
}

uint64_t count_between(std::span<const double> a, double lo, double hi) {
  return count_if(a, [=](double v) { return lo < v && v < hi; });
}
uint64_t count_equal(std::span<const double> a, double v) {
  return count_if(a, [=](double e) { return e == v; });
}
uint64_t count_greater(std::span<const double> a, double v) {
  return count_if(a, [=](double e) { return e > v; });
}
uint64_t count_less(std::span<const double> a, double v) {
  return count_if(a, [=](double e) { return e < v; });
}
uint64_t count_not_equal(std::span<const double> a, double v) {
  return count_if(a, [=](double e) { return e != v; });
}

void round_digits(std::span<const double> a, int64_t digits, std::span<double> out) {
  if (digits == 0) {
    for (size_t i = 0; i < a.size(); ++i) out[i] = std::round(a[i]);
    return;
  }
  const double factor = std::pow(10.0, static_cast<double>(digits));
  for (size_t i = 0; i < a.size(); ++i) out[i] = std::round(a[i] * factor) / factor;
}

void scale(std::span<double> values, double gain, double offset) {
  for (double& v : values) v = gain * v + offset;
}

}  // namespace mirn2::kernels
