// Identifiers of series, containers and other objects.
#pragma once

#include <cstdint>

#include "kvalo/export.h"

namespace mirn3::num {

// A new identifier, unique in this process: ascending, never zero, never a small number, and with
// check bits, so that a number a script made up is not taken for one. Any thread may call it.
MIRN3_API uint64_t create_id() noexcept;

// The identifier that a script asked for, or a new one where it asked for none (0).
MIRN3_API uint64_t check_id(uint64_t asked) noexcept;

}  // namespace mirn3::num
