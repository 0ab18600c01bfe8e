// Freed sample buffers that wait to be used again.
//
// The first write to fresh pages costs more than filling them with samples does: the system has to find
// and clear them. Loading one recording after another, or loading again what was unloaded for room,
// asks for the same sizes over and over, so mapped buffers are kept for a while. The system may take
// their pages back at any moment it needs them (MADV_FREE).
#pragma once

#include <cstddef>

namespace mirn3::mem::pool {

// A buffer of exactly this many mapped bytes, with any content; null when there is none.
void* take(size_t bytes) noexcept;

// Keeps a mapped buffer, in place of the oldest ones where there is no room. False: not kept, the
// caller unmaps it.
bool give(void* buffer, size_t bytes) noexcept;

// Unmaps everything that is kept.
void clear() noexcept;

}  // namespace mirn3::mem::pool
