// libmirn1: starts and stops the runtime in a process that has no host (stand-alone mode).
#pragma once

#include "kvalo/export.h"

namespace mirn1 {

// Sets the memory budget from the environment and the machine.
MIRN1_API void init_pyd();

// The counterpart; called before mirn3::shut().
MIRN1_API void shut_pyd() noexcept;

}  // namespace mirn1
