// Unpacking Snappy, in which most Parquet files pack their pages.
//
// The format: google/snappy, format_description.txt. The decoder is our own because time stamps, whose bytes
// repeat in runs of four and seven, take the one in the Arrow library three times as long.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace mirn2::rd::snappy {

// How many bytes the packed ones say they become; nothing when they do not even say that.
std::optional<uint32_t> unpacked_size(std::span<const uint8_t> packed) noexcept;

// Unpacks to all of `out`, never beyond it. False, with anything in `out`, when the packed bytes are damaged
// or become more or fewer.
bool unpack(std::span<const uint8_t> packed, std::span<uint8_t> out) noexcept;

}  // namespace mirn2::rd::snappy
