// From the texts of a column to numbers, asking the tag table once for each of the first 65536 different
// texts.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "runtime/str.h"
#include "runtime/tag.h"

namespace mirn2::rd {

class TextTags {
 public:
  // `key` names the table and outlives this.
  explicit TextTags(std::string_view key) : key_(key) {}

  // Bytes that are not UTF-8 are read as Latin-1. Throws mirn3::exc::error_t.
  double number(std::string_view text) {
    if (const auto found = numbers_.find(text); found != numbers_.end()) return found->second;
    const double number = mirn3::tag::fetch_or_create(key_, mirn3::str::to_utf8(text));
    // Where nearly all texts are different, remembering more of them gains nothing.
    if (numbers_.size() < most_remembered) numbers_.emplace(text, number);
    return number;
  }

 private:
  static constexpr size_t most_remembered = 1 << 16;

  struct Hash : std::hash<std::string_view> {
    using is_transparent = void;
  };

  std::string_view key_;
  std::unordered_map<std::string, double, Hash, std::equal_to<>> numbers_;
};

}  // namespace mirn2::rd
