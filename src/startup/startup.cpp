// Start and end of the runtime in a process without a host.
#include "startup/startup.h"

#include <limits>

#include "runtime/mem.h"

namespace mirn1 {

void init_pyd() { mirn3::mem::configure(); }

// From here on nothing may ask for room: the registry that makes it is about to go.
void shut_pyd() noexcept {
  mirn3::mem::callback_reserve = nullptr;
  mirn3::mem::memory_bank = std::numeric_limits<uint64_t>::max();
}

}  // namespace mirn1
