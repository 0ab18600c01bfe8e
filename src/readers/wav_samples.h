// From interleaved integers to samples: one channel of many audio frames.
// Pure functions over memory, for little-endian machines.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mirn2::rd::wav {

// One channel of consecutive frames.
struct Channel {
  const unsigned char* frames;  // the first byte of the first frame
  size_t frame_bytes;           // samples lie next to each other: width x channels
  size_t width;                 // bytes of a sample: 1 (unsigned), 2 or 4 (signed)
  size_t index;                 // of the channel, from 0
};

// y[i] = the channel's value in frame i, for i in [first, last).
void extract(const Channel& channel, size_t first, size_t last, double* y) noexcept;

}  // namespace mirn2::rd::wav
