// What two series say about each other: the transfer from one to the other, and their correlation.
//
// Both take the values of two series at the same, evenly spaced times.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace kvalo_view {

// Gain, phase and coherence from input to output over frequency, by Welch's method (1967): pieces of a
// power of two, half overlapping, without their mean, under a Hann window. With S the averaged (cross)
// spectra, H = Sxy / Sxx (the estimate that noise on the output does not bias), gain = 20 log10 |H|, phase
// its angle in degrees, coherence = |Sxy|^2 / (Sxx Syy). Pieces with a value that is not finite are left out.
struct Transfer {
  std::vector<double> frequencies;  // hertz, without 0
  std::vector<double> gain, phase, coherence;
};
// Throws exc::error_t, with a sentence that says what to do, without a piece to transform.
Transfer transfer_of(std::span<const double> input, std::span<const double> output, double period);

// r(lag) = sum of a[i] b[i + lag] / (n sd(a) sd(b)) without means, for lags of at most most_lags samples to
// either side: at a positive lag b follows a. Values that are not finite count as the mean.
constexpr size_t most_lags = size_t{1} << 16;
struct Correlation {
  std::vector<double> lags;  // seconds
  std::vector<double> values;
};
// Throws exc::error_t, with a sentence that says what to do, for fewer than two samples or a constant series.
Correlation correlation_of(std::span<const double> a, std::span<const double> b, double period);

}  // namespace kvalo_view
