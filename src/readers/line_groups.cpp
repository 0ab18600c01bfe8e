// Sorting lines by the words they begin with: every piece of the text by itself, then all together.
#include "readers/line_groups.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "runtime/par.h"

namespace mirn2::rd {

namespace {

struct Entry {
  uint32_t word;
  uint32_t offset;  // from the start of the piece
};

// Finds the words that a line begins with: the words between `low` and `high` share the characters
// looked at so far, and every further character narrows them down.
class Words {
 public:
  explicit Words(std::span<const std::string> sorted) : sorted_(sorted) {
    size_t word = 0;
    for (size_t c = 0; c < by_first_.size(); ++c) {
      by_first_[c].low = word;
      while (word < sorted.size() && static_cast<unsigned char>(sorted[word].front()) == c) ++word;
      by_first_[c].high = word;
    }
  }

  // Calls found(word) for each, shortest first.
  template <typename Found>
  void begin(const char* line, const char* end, const Found& found) const {
    if (line == end) return;
    auto [low, high] = by_first_[static_cast<unsigned char>(*line)];
    for (size_t depth = 1; low < high; ++depth) {
      if (sorted_[low].size() == depth) found(low++);
      if (line + depth >= end) return;
      const auto c = static_cast<unsigned char>(line[depth]);
      const auto at = [&](const std::string& word) { return static_cast<unsigned char>(word[depth]); };
      const auto first = sorted_.begin();
      const auto from = first + static_cast<ptrdiff_t>(low), to = first + static_cast<ptrdiff_t>(high);
      const auto lower = std::partition_point(from, to, [&](const std::string& w) { return at(w) < c; });
      const auto upper = std::partition_point(lower, to, [&](const std::string& w) { return at(w) == c; });
      low = static_cast<size_t>(lower - first);
      high = static_cast<size_t>(upper - first);
    }
  }

 private:
  struct Range {
    size_t low, high;
  };
  std::span<const std::string> sorted_;
  std::array<Range, 256> by_first_{};
};

// The start of the first line at or after `from`, if it is before `to`; else `to`.
size_t first_line(std::string_view text, size_t from, size_t to) {
  if (from == 0) return 0;
  const size_t feed = text.substr(0, to).find('\n', from - 1);
  return feed == std::string_view::npos ? to : feed + 1;
}

std::vector<Entry> sort_piece(std::string_view text, size_t from, size_t to, const Words& words,
                              std::string_view excluded) {
  std::vector<Entry> entries;
  for (size_t line = first_line(text, from, to); line < to;) {
    const std::string_view rest = text.substr(line);
    if (excluded.empty() || !rest.starts_with(excluded)) {
      words.begin(rest.data(), rest.data() + rest.size(), [&](size_t word) {
        entries.push_back({static_cast<uint32_t>(word), static_cast<uint32_t>(line - from)});
      });
    }
    line = first_line(text, line + 1, to);
  }
  return entries;
}

}  // namespace

LineGroups::LineGroups(std::string_view text, std::span<const std::string> words, std::string_view excluded,
                       size_t piece_bytes) {
  const Words lookup(words);
  const size_t pieces = (text.size() + piece_bytes - 1) / piece_bytes;
  std::vector<std::vector<Entry>> sorted(pieces);
  mirn3::par::run(pieces, [&](size_t piece) {
    const size_t from = piece * piece_bytes;
    sorted[piece] = sort_piece(text, from, std::min(from + piece_bytes, text.size()), lookup, excluded);
  });

  // How many lines each word has, then where its lines begin, then where its next line goes.
  first_.assign(words.size() + 2, 0);
  for (const auto& entries : sorted) {
    for (const Entry& entry : entries) ++first_[entry.word + 2];
  }
  for (size_t i = 2; i < first_.size(); ++i) first_[i] += first_[i - 1];
  starts_.resize(first_.back());
  for (size_t piece = 0; piece < pieces; ++piece) {
    for (const Entry& entry : sorted[piece]) {
      starts_[first_[entry.word + 1]++] = piece * piece_bytes + entry.offset;
    }
    sorted[piece] = {};
  }
  first_.pop_back();
}

}  // namespace mirn2::rd
