// A digest of samples, which tells later whether somebody has written into them.
#pragma once

#include <cstdint>
#include <span>

namespace mirn2::kernels {

// Depends on the bits and the order of the samples; -0.0 differs from 0.0. One changed sample always changes
// it.
uint64_t digest(std::span<const double> samples) noexcept;

}  // namespace mirn2::kernels
