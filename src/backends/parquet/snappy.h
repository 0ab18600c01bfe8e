// Decompressing Snappy, with which most Parquet files compress their pages.
//
// The format: google/snappy, format_description.txt. The decoder is our own because time stamps, whose bytes
// repeat in runs of four and seven, take the one in the Arrow library three times as long.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace mirn2::rd::snappy {

// The decompressed size that the bytes state; nothing when even that is damaged.
std::optional<uint32_t> decompressed_size(std::span<const uint8_t> compressed) noexcept;

// Decompresses to all of `out`, never beyond it. False, with anything in `out`, when the compressed bytes are
// damaged or become more or fewer.
bool decompress(std::span<const uint8_t> compressed, std::span<uint8_t> out) noexcept;

}  // namespace mirn2::rd::snappy
