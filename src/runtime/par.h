// Work on all cores: splits a range into contiguous parts and runs them at once.
//
// Threads live for one call. That costs about ten microseconds, which the callers' minimum sizes outweigh,
// and no thread is left that a fork of the process could break.
#pragma once

#include <cstddef>
#include <functional>

#include "kvalo/export.h"

namespace mirn3::par {

// Cores this process may use (its affinity mask), at least 1. KVALO_THREADS overrides it.
MIRN3_API size_t workers() noexcept;

// Calls task(0) ... task(parts - 1), each once, on up to workers() threads including the caller's; returns
// when all are done. If tasks throw, the exception of the lowest part is thrown after all have ended. Tasks
// must not touch the interpreter and must not charge the memory budget.
MIRN3_API void run(size_t parts, const std::function<void(size_t part)>& task);

// Splits 0..n into as many parts as pay off with at least `least` elements each and calls
// task(first, last) for each part.
MIRN3_API void ranges(size_t n, size_t least, const std::function<void(size_t first, size_t last)>& task);

}  // namespace mirn3::par
