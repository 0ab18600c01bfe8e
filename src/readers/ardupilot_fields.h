// The field letters of ArduPilot binary logs: how wide a field is and how it becomes a double.
//
// Fields are little-endian, unaligned and packed without gaps in the order of their letters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace mirn2::rd::ardupilot {

// The letters whose fields are offered as variables.
inline constexpr std::string_view offered_letters = "bBhHiIfdnNZcCeEMqQ";

// Reads one field of many records: out[i] = (the field at `field` + offsets[i]) * scale.
using Gather = void (*)(const unsigned char* field, std::span<const uint32_t> offsets, double scale,
                        double* out) noexcept;

struct Letter {
  char letter;
  uint8_t width;  // bytes in the record
  bool text;      // its value is the tag of the text: `gather` gives zeros
  Gather gather;
};

// What a letter means. An unknown letter has no width and the value 0.
const Letter& letter_of(char letter) noexcept;

// Whether fields of this letter are offered as variables.
bool is_offered(char letter) noexcept;

}  // namespace mirn2::rd::ardupilot
