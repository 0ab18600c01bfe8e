// The loops over the characters of a delimited file: where lines start, where fields end, and many
// number fields at once. Pure functions over memory that gives the same bits on every level.
//
// A field ends at the delimiter, a carriage return, a line feed or a zero byte; all but the delimiter
// end the fields of the row too.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace mirn2::rd::scan {

enum class Level { plain, avx2 };

// The fastest level that this machine has.
Level best_level() noexcept;

// --- Lines ---

struct LineSearch {
  const char* at;                    // the search goes on here
  bool at_line_start = true;         // whether the character before `at` ended a line
  const char* empty_line = nullptr;  // the first line feed that stands at the start of a line
  bool has_zero = false;             // a zero byte was passed
};

// Writes the offsets from `base` of the characters after the line feeds in [search.at, end) to `out`,
// and returns how many. Stops at the end, at an empty line, or when fewer than `line_room` offsets
// would fit; no offset may exceed 32 bits.
constexpr size_t line_room = 64;
size_t find_line_starts(Level level, LineSearch& search, const char* end, const char* base, uint32_t* out,
                        size_t room) noexcept;

// --- Fields ---

// Where the field that begins at p ends.
const char* field_end(const char* p, const char* row_end, char delimiter) noexcept;

// The beginning of the n-th field after the one that begins at p; null when the row has no such field.
// `readable` is where the memory ends.
const char* pass_fields(Level level, const char* p, const char* row_end, const char* readable, char delimiter,
                        uint64_t n) noexcept;

// --- Rows of numbers ---

// Consecutive rows of a file. Each ends before the line feed that the next one follows.
struct RowSpan {
  const char* base = nullptr;
  const uint32_t* starts = nullptr;  // offsets from base
  size_t rows = 0;
  const char* last_end = nullptr;  // the end of the last row
  const char* readable = nullptr;  // the end of the memory

  const char* start(size_t row) const noexcept { return base + starts[row]; }
  const char* end(size_t row) const noexcept {
    return row + 1 < rows ? base + starts[row + 1] - 1 : last_end;
  }
};

// Where a row was left behind: the offset from its start of the next field, or one of these.
constexpr uint32_t row_is_over = 0xffffffff;
constexpr uint32_t row_is_too_long = 0xfffffffe;

constexpr size_t most_fields = 33;

// What stands in an output where a row had no value. No number reads as these NaNs.
constexpr uint64_t missing_bits = 0x7ff8'6d69'7373'696e;
constexpr uint64_t unread_bits = 0x7ff8'756e'7265'6164;
inline bool is_missing(double value) noexcept { return std::bit_cast<uint64_t>(value) == missing_bits; }
inline bool is_unread(double value) noexcept { return std::bit_cast<uint64_t>(value) == unread_bits; }

struct NumberPass {
  RowSpan span;
  char delimiter = ',';
  uint64_t column = 0;             // number of the first field to read
  size_t fields = 1;               // how many fields to read, at most most_fields
  bool time_first = false;         // the first field is a time: it is never missing; what is not a plain
                                   // number is left as unread_bits
  const uint32_t* from = nullptr;  // where each row was left, at field `from_column`; null: nowhere
  uint64_t from_column = 0;
  uint32_t* to = nullptr;        // where each row is left, after the last field read; may be `from`
  double* const* out = nullptr;  // `fields` outputs of `span.rows` values
  uint64_t* odd = nullptr;       // `fields` counts: values that came out missing or unread are added
  bool past_caches = false;      // the outputs are more than the caches hold: none is kept there
};

void read_numbers(Level level, const NumberPass& pass) noexcept;

}  // namespace mirn2::rd::scan
