// What Array computes, on plain spans.
//
// NaN takes part in sums (which become NaN) and never satisfies a comparison but "not equal".
#pragma once

#include <cstdint>
#include <span>

namespace mirn2::kernels {

// Sum in index order, from 0.0.
double sum(std::span<const double> a);

// Mean: every element is divided by the count before it is added, in index order; 0.0 when empty.
double mean(std::span<const double> a);

// How many elements lie strictly between the limits, and how many satisfy `a[i] OP v`.
uint64_t count_between(std::span<const double> a, double lo, double hi);
uint64_t count_equal(std::span<const double> a, double v);
uint64_t count_greater(std::span<const double> a, double v);
uint64_t count_less(std::span<const double> a, double v);
uint64_t count_not_equal(std::span<const double> a, double v);

// Rounds half away from zero: to integers for 0 digits, else round(a * 10^digits) / 10^digits.
void round_digits(std::span<const double> a, int64_t digits, std::span<double> out);

// v = gain * v + offset, in place: one product and one sum, each rounded.
void scale(std::span<double> values, double gain, double offset);

}  // namespace mirn2::kernels
