// Finding the rows of a delimited file.
#include "readers/delimited_rows.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <mutex>
#include <utility>

#include "runtime/mem.h"
#include "runtime/par.h"

namespace mirn2::rd {

namespace {

// A piece gets room for as many line starts as lines of this length would have, then for twice as many.
constexpr size_t usual_line_bytes = 64;

constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";

void find_starts(scan::LineSearch& search, const char* begin, const char* end,
                 std::vector<uint32_t>& starts) {
  const scan::Level level = scan::best_level();
  const size_t first_room = static_cast<size_t>(end - begin) / usual_line_bytes + scan::line_room;
  size_t found = starts.size();
  while (search.at != end && search.empty_line == nullptr) {
    if (starts.size() - found < scan::line_room) starts.resize(found + std::max(first_room, starts.size()));
    found += scan::find_line_starts(level, search, end, begin, starts.data() + found, starts.size() - found);
  }
  starts.resize(found);
}

uint64_t count_delimiters(std::string_view row, char delimiter) {
  const char* p = row.data();
  const char* end = p + row.size();
  for (uint64_t count = 0;; ++count, ++p) {
    p = scan::field_end(p, end, delimiter);
    if (p == end || *p != delimiter) return count;
  }
}

// A range of numbers below 2^32 that threads take from both ends.
class Stretch {
 public:
  void set(size_t first, size_t last) { ends_.store(uint64_t{first} << 32 | last); }

  bool take_first(size_t& number) {
    uint64_t ends = ends_.load(std::memory_order_relaxed);
    do {
      if (is_empty(ends)) return false;
    } while (!ends_.compare_exchange_weak(ends, ends + (uint64_t{1} << 32)));
    number = ends >> 32;
    return true;
  }

  bool take_last(size_t& number) {
    uint64_t ends = ends_.load(std::memory_order_relaxed);
    do {
      if (is_empty(ends)) return false;
    } while (!ends_.compare_exchange_weak(ends, ends - 1));
    number = (ends & 0xffffffff) - 1;
    return true;
  }

 private:
  static bool is_empty(uint64_t ends) { return ends >> 32 >= (ends & 0xffffffff); }

  alignas(64) std::atomic<uint64_t> ends_{0};
};

// Whether the line's text, line end included, has fewer than two characters.
bool is_short(std::string_view rest) {
  return rest.size() < 2 || rest[0] == '\n' || rest[0] == '\0' || rest[1] == '\0';
}

}  // namespace

LineWalk::LineWalk(std::string_view text) : text_(text) {
  if (text_.starts_with(byte_order_mark)) position_ = byte_order_mark.size();
}

bool LineWalk::next(std::string_view& line) {
  if (position_ >= text_.size()) return false;
  const std::string_view rest = text_.substr(position_);
  const size_t feed = rest.find('\n');
  line = feed == std::string_view::npos ? rest : rest.substr(0, feed + 1);
  position_ += line.size();
  line = line.substr(0, line.find('\0'));
  return true;
}

DelimitedRows::DelimitedRows(const std::filesystem::path& path, char delimiter, uint64_t header_lines,
                             size_t piece_bytes, const Prepare& prepare)
    : stamp_(mirn3::sys::file_stamp(path)), mapping_(path) {
  LineWalk walk(text());
  std::string_view line;
  uint64_t skipped = 0;
  while (skipped < header_lines && walk.next(line)) ++skipped;
  line_count_ = skipped;
  if (walk.position() < text().size()) find_rows(walk.position(), delimiter, piece_bytes, prepare);

  size_t bytes = 0;
  for (const Piece& piece : pieces_) bytes += piece.starts.capacity() * sizeof(uint32_t);
  charge_.add(bytes);
}

// The search for the rows of all pieces, on all cores. The pieces are taken in order, so that the number of a
// piece's first row is known soon after its rows are found, and the visit finds them in the caches.
class DelimitedRows::Search {
 public:
  Search(std::string_view text, size_t piece_bytes, std::vector<Piece>& pieces, Visit visit)
      : text_(text),
        piece_bytes_(piece_bytes),
        pieces_(pieces),
        visit_(std::move(visit)),
        is_found_(pieces.size()) {}

  void run() {
    mirn3::par::run(std::min(mirn3::par::workers(), pieces_.size()), [&](size_t) { work(); });
  }

  // The first piece with an empty line; the pieces after it are not all searched. Without one: all pieces.
  size_t stopped_at() const { return std::min(stopped_at_.load(), pieces_.size()); }

 private:
  void work() {
    std::vector<size_t> found;  // and not visited yet
    for (size_t number; (number = next_.fetch_add(1)) < pieces_.size();) {
      if (stopped_at_.load(std::memory_order_relaxed) < number) return;
      find(number);
      if (visit_ == nullptr) continue;
      found.push_back(number);
      const size_t known = note(number);
      while (!found.empty() && found.front() < known) {
        visit(found.front());
        found.erase(found.begin());
      }
    }
  }

  void find(size_t number) {
    Piece& piece = pieces_[number];
    const char* begin = text_.data() + piece.base;
    const char* end = begin + std::min(piece_bytes_, text_.size() - piece.base);
    piece.search = {.at = begin, .at_line_start = number == 0 || begin[-1] == '\n'};
    if (number == 0) piece.starts.push_back(0);
    find_starts(piece.search, begin, end, piece.starts);
    piece.starts.shrink_to_fit();
    if (piece.search.empty_line == nullptr) return;
    size_t before = stopped_at_.load(std::memory_order_relaxed);
    while (number < before && !stopped_at_.compare_exchange_weak(before, number)) {
    }
  }

  // Numbers the rows as far as all pieces before them are found; returns how many pieces that are.
  size_t note(size_t number) {
    const std::lock_guard lock(guard_);
    is_found_[number] = true;
    for (; known_ < pieces_.size() && is_found_[known_]; ++known_) {
      pieces_[known_].first_row = rows_;
      rows_ += pieces_[known_].starts.size();
    }
    return known_;
  }

  void visit(size_t number) {
    const Piece& piece = pieces_[number];
    if (piece.starts.empty()) return;
    const char* last = text_.data() + piece.base + piece.starts.back();
    const char* end = text_.data() + text_.size();
    const void* feed = last != end ? std::memchr(last, '\n', static_cast<size_t>(end - last)) : nullptr;
    visit_(number,
           {.base = text_.data() + piece.base,
            .starts = piece.starts.data(),
            .rows = piece.starts.size(),
            .last_end = feed != nullptr ? static_cast<const char*>(feed) : end,
            .readable = end},
           piece.first_row);
  }

  const std::string_view text_;
  const size_t piece_bytes_;
  std::vector<Piece>& pieces_;
  const Visit visit_;
  std::atomic<size_t> next_{0};
  std::atomic<size_t> stopped_at_{std::numeric_limits<size_t>::max()};

  std::mutex guard_;
  std::vector<bool> is_found_;
  size_t known_ = 0;
  uint64_t rows_ = 0;
};

void DelimitedRows::find_rows(size_t first, char delimiter, size_t piece_bytes, const Prepare& prepare) {
  const std::string_view all = text();
  pieces_.resize((all.size() - first + piece_bytes - 1) / piece_bytes);
  for (size_t number = 0; number < pieces_.size(); ++number) {
    pieces_[number].base = first + number * piece_bytes;
  }
  Search search(all, piece_bytes, pieces_,
                prepare != nullptr ? prepare(all.substr(first), pieces_.size()) : nullptr);
  search.run();

  if (search.stopped_at() < pieces_.size()) {
    const Piece& piece = pieces_[search.stopped_at()];
    drop_rows_from(static_cast<size_t>(piece.search.empty_line - all.data()));
    line_count_ = mirn3::sys::line_count(mapping_.bytes());
  } else {
    // A line feed at the end starts no line.
    drop_rows_from(all.size());
    for (const Piece& piece : pieces_) line_count_ += piece.starts.size();
  }
  cut_at_short_line();

  if (rows_ > 1 && all.back() != '\n') {
    const Piece& last = *std::find_if(pieces_.rbegin(), pieces_.rend(),
                                      [](const Piece& piece) { return !piece.starts.empty(); });
    const size_t start = last.base + last.starts.back();
    if (last.last_end == all.size() &&
        count_delimiters(all.substr(start), delimiter) < count_delimiters(first_row(), delimiter)) {
      has_unfinished_row_ = true;
      drop_rows_from(start);
    }
  }
}

// Empty lines ended the search; zero bytes and the end of the file make short lines too.
void DelimitedRows::cut_at_short_line() {
  const std::string_view all = text();
  const bool has_zero =
      std::any_of(pieces_.begin(), pieces_.end(), [](const Piece& piece) { return piece.search.has_zero; });
  for (size_t number = has_zero ? 0 : pieces_.size(); number < pieces_.size(); ++number) {
    const Piece& piece = pieces_[number];
    for (const uint32_t offset : piece.starts) {
      const size_t start = piece.base + offset;
      if (is_short(all.substr(start))) return drop_rows_from(start);
    }
  }
  // Without a zero byte only the last line, without its line feed, is left to look at.
  for (auto piece = pieces_.rbegin(); piece != pieces_.rend(); ++piece) {
    if (piece->starts.empty()) continue;
    const size_t start = piece->base + piece->starts.back();
    if (is_short(all.substr(start))) drop_rows_from(start);
    return;
  }
}

// Forgets the rows that start at this offset or after it, which thereby becomes the end of the last.
void DelimitedRows::drop_rows_from(size_t offset) {
  for (Piece& piece : pieces_) {
    const auto keep = std::find_if(piece.starts.rbegin(), piece.starts.rend(),
                                   [&](uint32_t start) { return piece.base + start < offset; });
    piece.starts.erase(keep.base(), piece.starts.end());
  }
  while (!pieces_.empty() && pieces_.back().starts.empty()) pieces_.pop_back();

  rows_ = 0;
  for (Piece& piece : pieces_) {
    piece.first_row = rows_;
    rows_ += piece.starts.size();
  }
  size_t next_start = offset;
  for (auto piece = pieces_.rbegin(); piece != pieces_.rend(); ++piece) {
    if (piece->starts.empty()) continue;
    const bool has_feed = text()[next_start - 1] == '\n';
    piece->last_end = next_start - (has_feed ? 1 : 0);
    next_start = piece->base + piece->starts.front();
  }
}

std::string_view DelimitedRows::first_row() const {
  if (rows_ == 0) return {};
  const scan::RowSpan first = span(0);
  return {first.start(0), static_cast<size_t>(first.end(0) - first.start(0))};
}

scan::RowSpan DelimitedRows::span(size_t number) const {
  const Piece& piece = pieces_[number];
  const char* begin = text().data();
  return {.base = begin + piece.base,
          .starts = piece.starts.data(),
          .rows = piece.starts.size(),
          .last_end = begin + piece.last_end,
          .readable = begin + text().size()};
}

void DelimitedRows::for_each_piece(const std::function<void(size_t piece)>& task) const {
  const size_t workers = std::min(mirn3::par::workers(), pieces_.size());
  if (workers < 2) {
    for (size_t piece = 0; piece < pieces_.size(); ++piece) task(piece);
    return;
  }
  // Every thread begins with a stretch of its own, so that two threads seldom make the same page of the
  // outputs at the same time, and then takes pieces from the ends of the others' stretches.
  std::vector<Stretch> stretches(workers);
  for (size_t i = 0; i < workers; ++i) {
    stretches[i].set(i * pieces_.size() / workers, (i + 1) * pieces_.size() / workers);
  }
  mirn3::par::run(workers, [&](size_t own) {
    size_t piece;
    while (stretches[own].take_first(piece)) task(piece);
    for (size_t other = own + 1; other < own + workers; ++other) {
      while (stretches[other % workers].take_last(piece)) task(piece);
    }
  });
}

}  // namespace mirn2::rd
