// The memory budget that every sample buffer is charged to.
//
// The budget is half of the smaller of physical memory and the cgroup limit; KVALO_MEMORY_BANK (bytes)
// overrides it. It is a target, never a refusal: when a charge takes memory_used over memory_bank, the
// installed callback makes room; if it cannot, the charge stands and a warning goes to the log.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "runtime/sample_vector.h"

namespace mirn3::mem {

MIRN3_API extern std::atomic<uint64_t> memory_used;  // bytes charged now
MIRN3_API extern std::atomic<uint64_t> memory_bank;  // bytes of the budget

// What the budget has left.
inline uint64_t free_budget() noexcept {
  const uint64_t bank = memory_bank, used = memory_used;
  return bank > used ? bank - used : 0;
}

// Asked to make room when a charge exceeds the budget. Called by reserve() on the charging thread,
// never twice at once on one thread. Install and clear it while nobody allocates.
MIRN3_API extern std::function<void()> callback_reserve;

// Sets memory_bank from the environment and the machine.
MIRN3_API void configure();

}  // namespace mirn3::mem
