// Which lines of a text begin with which of many words.
//
// A line can begin with several of them (GPS2 begins with GPS too) and then belongs to each. The work
// is bounded by the size of the text, however many words there are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mirn2::rd {

class LineGroups {
 public:
  LineGroups() = default;

  // Sorts the lines of `text` by the `words` they begin with, on all cores. The words are in ascending
  // order, different and not empty. Lines that begin with `excluded` belong to no word. The text is
  // cut into pieces of `piece_bytes` (below 4 GiB), which changes nothing in the result.
  LineGroups(std::string_view text, std::span<const std::string> words, std::string_view excluded,
             size_t piece_bytes = usual_piece_bytes);

  static constexpr size_t usual_piece_bytes = size_t{4} << 20;

  // The offsets of the lines that begin with the word, ascending.
  std::span<const uint64_t> lines(size_t word) const noexcept {
    return std::span(starts_).subspan(first_[word], first_[word + 1] - first_[word]);
  }

  size_t bytes_held() const noexcept {
    return starts_.capacity() * sizeof(uint64_t) + first_.capacity() * sizeof(size_t);
  }

 private:
  std::vector<uint64_t> starts_;  // ordered by word, then by place
  std::vector<size_t> first_;     // where each word's lines begin in starts_, and the end
};

}  // namespace mirn2::rd
