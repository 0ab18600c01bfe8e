// Questions about one series: t are the time stamps in seconds, ascending unless said otherwise, y the
// values. No kernel changes its arguments.
//
// NaN never satisfies a comparison but "not equal", is never an extreme, and goes through sums. Long
// inputs are looked at on all cores; the answer does not depend on their number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace mirn2::kernels {

// Smallest and largest value, NaN left out; both NaN when there is no number at all. Of a zero and a
// negative zero the first is the minimum and the last the maximum.
struct Extremes {
  double lo;
  double hi;
};
Extremes extremes(std::span<const double> y);

// Mean over time, every value held until the next stamp: the sum of (t[i] - t[i-1]) * y[i-1] / T for i
// from 1 to the last value, T = last stamp - first stamp, each term divided on its own and added in
// order. 0.0 for fewer than two values. At least as many stamps as values.
double zero_order_mean(std::span<const double> t, std::span<const double> y);

enum class Relation { less, less_equal, equal, not_equal, greater, greater_equal };

// Index of the first value with `y[i] relation value`; the size of y when there is none.
size_t find_first(std::span<const double> y, Relation relation, double value);

// Total of the intervals t[i] - t[i-1], in order, whose value at the START, y[i-1], satisfies
// `y[i-1] relation value`. As many stamps as values.
double time_where(std::span<const double> t, std::span<const double> y, Relation relation, double value);

// The same for intervals whose value at the END lies strictly between the limits: lo < y[i] < hi.
double time_between(std::span<const double> t, std::span<const double> y, double lo, double hi);

// Kind of signal among the samples after t0 up to and including t1; among all but the last one when
// the two are equal. 4: constant, 2: the values span exactly 1.0, 1: anything else, no samples among it.
uint64_t pattern_code(std::span<const double> t, std::span<const double> y, double t0, double t1);

// Samples from the first stamp not before tini to the first one after tend, both included; the last
// sample stands in for a stamp that is not there. first > last when the times contradict each other.
// At least one stamp.
struct Slice {
  size_t first;
  size_t last;
};
Slice slice(std::span<const double> t, double tini, double tend);

// Whether sort_by_time would change nothing: stamps ascend, NaN behind all numbers.
bool is_sorted_by_time(std::span<const double> t);

// The samples in order of time: equal stamps keep their order, NaN goes behind every number. All four
// have the same size; results overlap no input. Takes memory for one stamp and one index a sample.
void sort_by_time(std::span<const double> t, std::span<const double> y, std::span<double> sorted_t,
                  std::span<double> sorted_y);

// What inspect() tells of one axis.
struct AxisFacts {
  uint64_t infinite = 0;
  uint64_t nan = 0;
  bool strictly_increasing = true;  // also with fewer than two values; NaN increases nothing
};
AxisFacts axis_facts(std::span<const double> axis);

}  // namespace mirn2::kernels
