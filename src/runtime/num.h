// Identifiers of series, containers and other objects.
#pragma once

#include <cstdint>

#include "kvalo/export.h"

namespace mirn3::num {

// A new identifier, unique in this process: ascending, never zero, never a small number, and with
// check bits, so that a number a script made up is not taken for one. Any thread may call it.
MIRN3_API uint64_t create_id() noexcept;

// Whether `value` has the form of an identifier made by create_id() in this process.
MIRN3_API bool check_id(uint64_t value) noexcept;

}  // namespace mirn3::num
