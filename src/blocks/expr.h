// Texts that stand for numbers: Python expressions, evaluated through the runtime's interpreter table.
#pragma once

#include <string>
#include <string_view>

#include "blocks/properties.h"

namespace plexo {

// Whether the value is a text, or holds one where a number is due.
bool has_text(const value_t& value) noexcept;

// A plain number or infinity ("2.5", "-float('inf')"), which needs no interpreter; false for anything else.
bool plain_number(std::string_view text, double& value);

// Replaces texts by the numbers that they give. With `is_from_file`, texts may hold nothing but numbers,
// texts, lists, arithmetic, names of `math`, float(...), and plain numbers of __main__; others are refused
// without being run. False, with the reason, for what raises or is refused. What is not a number becomes a
// text again, which fits nowhere.
bool evaluate(const value_t& value, bool is_from_file, value_t& result, std::string& why);

}  // namespace plexo
