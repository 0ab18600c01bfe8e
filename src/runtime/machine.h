// What this machine has: its memory and its processor's instruction sets.
#pragma once

#include <cstdint>

#include "kvalo/export.h"

namespace mirn3::machine {

// Bytes of physical memory, whatever a control group allows of it; UINT64_MAX when the system does not say.
MIRN3_API uint64_t physical_memory() noexcept;

// Whether the processor and the system support 256-bit integer vectors; false on other architectures.
MIRN3_API bool has_avx2() noexcept;

// The same with the bit manipulation instructions of both sets, BMI1 and BMI2.
MIRN3_API bool has_avx2_and_bmi() noexcept;

}  // namespace mirn3::machine
