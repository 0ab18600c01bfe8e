// A range of one series, as the signal-processing routines take it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace mirn3::dsp {

struct arg_t {
  const double* x;  // time stamps of the whole series
  const double* y;  // values
  uint64_t first;   // index of the first sample of the range
  uint64_t last;    // index one past its last sample

  size_t size() const { return last - first; }
  std::span<const double> stamps() const { return {x + first, size()}; }
  std::span<const double> values() const { return {y + first, size()}; }
};

}  // namespace mirn3::dsp
