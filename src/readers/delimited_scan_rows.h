// What the levels of the loops over delimited text have in common. Not for other files.
#pragma once

#include "readers/delimited_scan.h"
#include "readers/number_text.h"

namespace mirn2::rd::scan {

inline bool ends_row(char c) noexcept { return c == '\n' || c == '\r' || c == '\0'; }

// A row position as it is kept between passes; p is null when the row is over.
inline uint32_t left_at(const char* row_start, const char* p) noexcept {
  if (p == nullptr) return row_is_over;
  const auto offset = static_cast<uint64_t>(p - row_start);
  return offset < row_is_too_long ? static_cast<uint32_t>(offset) : row_is_too_long;
}

const char* pass_fields_plain(const char* p, const char* row_end, char delimiter, uint64_t n) noexcept;

// Reads the field that begins at p, a number or, left unread, a time; p is null when the row is over.
// Returns where the next field begins, null when there is none.
const char* read_field(const char* p, const char* row_end, char delimiter, bool is_time, double& value,
                       uint64_t& odd) noexcept;

// Where the first field that the pass reads begins in a row; null when the row has no such field.
const char* first_field(Level level, const NumberPass& pass, size_t row) noexcept;

}  // namespace mirn2::rd::scan
