// The texts of a workbook, by number: the shared ones in their order, then those written in the cells.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "backends/xlsx/byte_source.h"

namespace mirn2::rd::xlsx {

class Strings {
 public:
  // Appends the shared texts. Throws mirn3::exc::error_t when there are more than memory should hold.
  void read_shared(ByteSource& source);

  size_t size() const noexcept { return ends_.size() + own_.size(); }

  // Empty for a number that no text has.
  std::string_view operator[](uint64_t number) const noexcept;

  // The number of a text in a cell. Throws like read_shared.
  uint64_t number_of(std::string_view text);

  uint64_t bytes() const noexcept {
    return shared_.capacity() + ends_.capacity() * sizeof(uint64_t) + own_bytes_;
  }

 private:
  std::string shared_;
  std::vector<uint64_t> ends_;
  std::deque<std::string> own_;  // in place forever: the index refers to them
  std::unordered_map<std::string_view, uint64_t> index_;
  uint64_t own_bytes_ = 0;
};

}  // namespace mirn2::rd::xlsx
