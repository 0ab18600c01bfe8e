// From texts to numbers: the tag table is asked once for each different text of a column.
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

  // Bytes that are not UTF-8 are taken for Latin-1. Throws mirn3::exc::error_t.
  double number(std::string_view text) {
    auto found = numbers_.find(text);
    if (found == numbers_.end()) {
      found = numbers_.emplace(text, mirn3::tag::fetch_or_create(key_, mirn3::str::to_utf8(text))).first;
    }
    return found->second;
  }

 private:
  struct Hash : std::hash<std::string_view> {
    using is_transparent = void;
  };

  std::string_view key_;
  std::unordered_map<std::string, double, Hash, std::equal_to<>> numbers_;
};

}  // namespace mirn2::rd
