// Passes over many samples at the speed of memory: the limits of values, alone and in pairs,
// and whether two vectors hold the same time stamps. NaN is never a limit. On all cores.
#pragma once

#include <cstddef>
#include <limits>
#include <span>

namespace mirn3::dsp {

constexpr size_t scan_least = 1 << 16;  // samples for which a thread pays off

struct Limits {
  double lo = std::numeric_limits<double>::infinity();
  double hi = -std::numeric_limits<double>::infinity();

  void add(double value) {
    lo = value < lo ? value : lo;  // false for NaN
    hi = value > hi ? value : hi;
  }
  void add(const Limits& other) {
    if (other.empty()) return;
    add(other.lo);
    add(other.hi);
  }
  bool empty() const { return lo > hi; }
};

Limits limits_of(std::span<const double> values);

// Adds the pairs a[i], b[i] in which neither is NaN. One thread.
void add_pairs(const double* a, const double* b, size_t n, Limits& of_a, Limits& of_b);

// Whether both, not empty and of one length, are the same, bit by bit, and ascend strictly, so that neither
// holds a NaN.
bool is_same_time(std::span<const double> a, std::span<const double> b);

}  // namespace mirn3::dsp
