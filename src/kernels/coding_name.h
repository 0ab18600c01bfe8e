// The names of bit-field codings.
#pragma once

#include <string_view>

#include "kernels/bit_field.h"

namespace mirn2::kernels {

// "SGN", "2C", "BCD", ignoring case; any other text is "USGN", unsigned binary.
Coding coding_named(std::string_view name);

}  // namespace mirn2::kernels
