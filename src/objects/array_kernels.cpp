#include "objects/array_kernels.h"

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

double apply(Logic op, double a, double b) {
  const bool p = a != 0.0;
  const bool q = b != 0.0;
  switch (op) {
    case Logic::conjunction:
      return p && q ? 1.0 : 0.0;
    case Logic::disjunction:
      return p || q ? 1.0 : 0.0;
    case Logic::exclusive:
      return p != q ? 1.0 : 0.0;
  }
  return 0.0;
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

void logical(Logic op, std::span<const double> a, std::span<const double> b, std::span<double> out) {
  const size_t both = std::min(a.size(), b.size());
  for (size_t i = 0; i < both; ++i) out[i] = apply(op, a[i], b[i]);
  for (size_t i = both; i < a.size(); ++i) out[i] = apply(op, a[i], 0.0);
  for (size_t i = both; i < b.size(); ++i) out[i] = apply(op, 0.0, b[i]);
}

void logical(Logic op, std::span<const double> a, double b, std::span<double> out) {
  for (size_t i = 0; i < a.size(); ++i) out[i] = apply(op, a[i], b);
}

void logical_not(std::span<const double> a, std::span<double> out) {
  for (size_t i = 0; i < a.size(); ++i) out[i] = a[i] == 0.0 ? 1.0 : 0.0;
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
