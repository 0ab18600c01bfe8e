// The digest of samples, in eight lanes side by side.
#include "kernels/digest.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace mirn2::kernels {

uint64_t digest(std::span<const double> samples) noexcept {
  const size_t n = samples.size();
  // Eight independent lanes, because one would wait for every multiplication. For each word a lane is
  // rotated, combined and multiplied: all three can be undone, so one changed word always changes its
  // lane, and the rotation brings high bits (a sign) to where the next multiplication spreads them.
  constexpr size_t lanes = 8;
  constexpr uint64_t factor = 0x9e3779b97f4a7c15u;
  uint64_t lane[lanes];
  for (size_t k = 0; k < lanes; ++k) lane[k] = factor * (k + 1);
  const auto mix = [](uint64_t h, uint64_t word) { return (std::rotl(h, 29) ^ word) * factor; };

  size_t i = 0;
  for (; i + lanes <= n; i += lanes) {
    uint64_t words[lanes];
    std::memcpy(words, samples.data() + i, sizeof words);
    for (size_t k = 0; k < lanes; ++k) lane[k] = mix(lane[k], words[k]);
  }
  for (; i < n; ++i) lane[i % lanes] = mix(lane[i % lanes], std::bit_cast<uint64_t>(samples[i]));

  uint64_t whole = n;
  for (size_t k = 0; k < lanes; ++k) whole = mix(whole, lane[k] ^ lane[k] >> 32);
  return whole ^ whole >> 29;
}

}  // namespace mirn2::kernels
