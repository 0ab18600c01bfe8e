// What happened before an event: steps of a signal that precede every occurrence by the same time.
#pragma once

#include <span>
#include <vector>

namespace mirn2::kernels {

// The stamps t[k], k from 1, at which y leaves zero: y[k-1] is 0.0 and y[k] is not (NaN is not zero).
// As many stamps as values.
std::vector<double> rising_edges(std::span<const double> t, std::span<const double> y);

// A step that came `lead` seconds before every event: the signal fell from at or above the threshold to
// below it, or rose from at or below it to above it.
struct Precursor {
  double lead;
  double threshold;
  bool falls;
};

// The precursors of the events e[0], e[1], ... (ascending, at least one) in a signal with stamps t and
// values v, as many of each, in order of growing lead.
//
// For k = 1, 2, ...: i is the first sample at or after e[0] (else the last one), j = i - k, and
// lead = e[0] - t[j]. The search ends when there is no such j or lead >= window. The step from v[j] to
// v[j+1] gives the direction and the threshold v[j]; no step, no candidate. A candidate must be met at
// every later event e[m]: with idx the first sample at or after e[m] - lead (else the last one), the step
// from v[idx] to v[idx+1] crosses the threshold in the same direction. It is dropped at the first event
// where it does not, or where idx is the last sample; where e[m] - t[idx] >= window, the whole search ends.
//
// Stamps ascend (NaN behind all numbers); with others the answer means nothing, but there is one. A NaN
// value makes no step. Time: the samples within the window, times the events a candidate gets to.
std::vector<Precursor> find_precursors(std::span<const double> t, std::span<const double> v,
                                       std::span<const double> events, double window);

}  // namespace mirn2::kernels
