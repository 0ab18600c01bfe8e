// Evenly spaced numbers from 0 on: the times of audio frames, and the indexes that replace times where a
// source has none. All variables of one spacing share one vector, whatever their file and length.
#pragma once

#include <cstdint>

#include "kvalo/shared_vector.h"

namespace mirn3::num {

// i * step for i = 0 ... n - 1, each rounded once. Shared: writers call make_unique() first. The vector made
// last is kept for the next source with this spacing, if it has no more than 256 MiB. Charges the memory
// budget; throws std::bad_alloc.
MIRN3_API shared_vector<double> ramp(double step, uint64_t n);

// Drops the vector that is kept.
MIRN3_API void forget_ramp() noexcept;

}  // namespace mirn3::num
