// Small text helpers that many rooms need: letter case, blanks, UTF-8, replacing, random names.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "kvalo/export.h"

namespace mirn3::str {

// `n` random letters and digits, beginning with a letter.
MIRN3_API std::string random(size_t n);

// Replaces every occurrence of `from` by `to`, left to right, without looking at what it put in.
// An empty `from` changes nothing.
MIRN3_API std::string replace_all(std::string_view text, std::string_view from, std::string_view to);

// Lower case of ASCII letters; every other byte stays.
constexpr char lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
MIRN3_API std::string to_lower(std::string_view text);

// The text without the blanks, tabs and line ends around it.
MIRN3_API std::string_view trimmed(std::string_view text) noexcept;

// Length of the well-formed UTF-8 character that a text, which is not empty, begins with; 0 when there is
// none.
MIRN3_API size_t utf8_length(std::string_view text) noexcept;

// Text from a file as UTF-8: itself when it is valid UTF-8, else every byte taken as a Latin-1 character.
MIRN3_API std::string to_utf8(std::string_view text);

}  // namespace mirn3::str
