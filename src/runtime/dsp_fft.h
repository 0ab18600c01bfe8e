// The amplitude spectrum of a range of one series.
//
// One-sided: n / 2 + 1 lines (rounded down), from 0 Hz to half the sampling frequency. A line at k is
// abs(X[k]) / n at 0 Hz and, for an even n, at half the sampling frequency, and 2 * abs(X[k]) / n elsewhere,
// X being the discrete Fourier transform of the values: a sine of amplitude A that fits the range a whole
// number of times shows as A. No padding, window or removal of the mean.
//
// The samples are taken to be evenly spaced by the estimated sampling period: the mean of the intervals
// that differ from the median by no more than half of it, so that pauses in a recording do not count.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "kvalo/export.h"
#include "runtime/dsp_range.h"

namespace mirn3::dsp {

struct fft_t {
  std::vector<double> values;       // amplitudes
  std::vector<double> frequencies;  // hertz, as many
};

// `raw` gives abs(X[k]) instead of amplitudes. The range holds at least one sample for the values, two for
// the frequencies. Throws exc::error_t, with a sentence that says what to do, for values that are not
// finite and for time stamps that do not ascend.
MIRN3_API fft_t fft(const arg_t& range, bool raw);

// The parts of fft(): they may run at the same time. There are fft_lines(range) values; line k lies at
// k / fft_duration(range).
inline size_t fft_lines(const arg_t& range) { return range.size() / 2 + 1; }
MIRN3_API void fft_values(const arg_t& range, bool raw, std::span<double> values);
MIRN3_API double fft_duration(const arg_t& range);

}  // namespace mirn3::dsp
