// Arithmetic on pairs of doubles, in the vector registers that every processor has: for loops that choose
// between values, which compilers otherwise turn into jumps.
//
// A comparison of Lanes gives Masks: all bits set where it is true.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "kernels/axis.h"

namespace mirn2::kernels {

using Lanes = double __attribute__((vector_size(16)));
using Masks = uint64_t __attribute__((vector_size(16)));
constexpr size_t lane_count = sizeof(Lanes) / sizeof(double);

inline Lanes lanes(double value) { return Lanes{value, value}; }
inline Masks masks(uint64_t value) { return Masks{value, value}; }

template <typename Comparison>
Masks bits(Comparison value) {
  return std::bit_cast<Masks>(value);
}
inline Lanes numbers(Masks value) { return std::bit_cast<Lanes>(value); }

inline Lanes select(Masks where, Lanes chosen, Lanes otherwise) {
  return numbers((where & bits(chosen)) | (~where & bits(otherwise)));
}

// 1.0 where the mask is set, else 0.0.
inline Lanes logic(Masks where) { return numbers(where & bits(lanes(1.0))); }

inline Lanes load(const double* from, size_t count = lane_count) {
  Lanes value{};
  std::memcpy(&value, from, count * sizeof(double));
  return value;
}
template <typename Value>
void store(double* to, Value value, size_t count = lane_count) {
  std::memcpy(to, &value, count * sizeof(double));
}

// Calls work(i, count) for 0..n in steps of lane_count; count is a constant but for a shorter last step.
template <typename Work>
void in_lanes(size_t n, Work work) {
  size_t i = 0;
  for (; i + lane_count <= n; i += lane_count) work(i, std::integral_constant<size_t, lane_count>());
  if (i < n) work(i, n - i);
}

// out[i] = value(y[i]) for every element, on all cores; value takes and returns Lanes.
template <typename Value>
void map(Axis y, Result out, Value value) {
  in_parts(out.size(), [=](size_t first, size_t last) {
    const double* const from = y.data() + first;
    double* const to = out.data() + first;
    in_lanes(last - first, [=](size_t i, auto count) { store(to + i, value(load(from + i, count)), count); });
  });
}

}  // namespace mirn2::kernels
