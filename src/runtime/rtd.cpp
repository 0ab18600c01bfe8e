// The state of the real-time connection.
#include "runtime/rtd.h"

#include <atomic>

namespace mirn3::rtd {

namespace {
std::atomic<bool> online{false};
}

bool is_online() noexcept { return online.load(std::memory_order_acquire); }
void set_online() noexcept { online.store(true, std::memory_order_release); }
void set_offline() noexcept { online.store(false, std::memory_order_release); }

}  // namespace mirn3::rtd
