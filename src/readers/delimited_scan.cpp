// The plain level of the loops over delimited text, and the choice between the levels.
#include "readers/delimited_scan.h"

#include <algorithm>
#include <cstring>

#include "readers/delimited_scan_avx2.h"
#include "readers/delimited_scan_rows.h"
#include "runtime/machine.h"

namespace mirn2::rd::scan {

namespace {

size_t find_line_starts_plain(LineSearch& search, const char* end, const char* base, uint32_t* out,
                              size_t room) noexcept {
  size_t found = 0;
  while (search.at != end && found + line_room <= room) {
    const size_t left = static_cast<size_t>(end - search.at);
    const char* feed = static_cast<const char*>(std::memchr(search.at, '\n', left));
    const char* line_end = feed != nullptr ? feed : end;
    if (!search.has_zero) {
      search.has_zero = std::memchr(search.at, 0, static_cast<size_t>(line_end - search.at)) != nullptr;
    }
    if (feed == nullptr) {
      search.at = end;
      search.at_line_start = false;
      break;
    }
    if (feed == search.at && search.at_line_start) {
      search.empty_line = feed;
      break;
    }
    search.at = feed + 1;
    search.at_line_start = true;
    out[found++] = static_cast<uint32_t>(search.at - base);
  }
  return found;
}

}  // namespace

Level best_level() noexcept { return mirn3::machine::has_avx2_and_bmi() ? Level::avx2 : Level::plain; }

const char* field_end(const char* p, const char* row_end, char delimiter) noexcept {
  while (p < row_end && *p != delimiter && !ends_row(*p)) ++p;
  return p;
}

const char* pass_fields_plain(const char* p, const char* row_end, char delimiter, uint64_t n) noexcept {
  for (; n != 0; --n) {
    p = field_end(p, row_end, delimiter);
    if (p >= row_end || *p != delimiter) return nullptr;
    ++p;
  }
  return p;
}

const char* read_field(const char* p, const char* row_end, char delimiter, bool is_time, double& value,
                       uint64_t& odd) noexcept {
  const char* end = p != nullptr ? field_end(p, row_end, delimiter) : nullptr;
  if (is_time) {
    value = std::bit_cast<double>(unread_bits);
    ++odd;
  } else if (end == p) {
    value = std::bit_cast<double>(missing_bits);
    ++odd;
  } else {
    value = read_number(p, end);
  }
  return end != nullptr && end < row_end && *end == delimiter ? end + 1 : nullptr;
}

const char* first_field(Level level, const NumberPass& pass, size_t row) noexcept {
  const char* start = pass.span.start(row);
  uint64_t skip = pass.column;
  if (pass.from != nullptr) {
    const uint32_t left_at = pass.from[row];
    if (left_at == row_is_over) return nullptr;
    if (left_at != row_is_too_long) {
      start += left_at;
      skip -= pass.from_column;
    }
  }
  if (skip == 0) return start;
  return pass_fields(level, start, pass.span.end(row), pass.span.readable, pass.delimiter, skip);
}

void read_rows_plain(Level level, const NumberPass& pass, size_t first, size_t last) noexcept {
  for (size_t row = first; row < last; ++row) {
    const char* row_end = pass.span.end(row);
    const char* p = first_field(level, pass, row);
    for (size_t k = 0; k < pass.fields; ++k) {
      p = read_field(p, row_end, pass.delimiter, pass.time_first && k == 0, pass.out[k][row], pass.odd[k]);
    }
    if (pass.to != nullptr) pass.to[row] = left_at(pass.span.start(row), p);
  }
}

size_t find_line_starts(Level level, LineSearch& search, const char* end, const char* base, uint32_t* out,
                        size_t room) noexcept {
#if defined(__x86_64__)
  if (level == Level::avx2) return find_line_starts_avx2(search, end, base, out, room);
#endif
  (void)level;
  return find_line_starts_plain(search, end, base, out, room);
}

const char* pass_fields(Level level, const char* p, const char* row_end, const char* readable, char delimiter,
                        uint64_t n) noexcept {
#if defined(__x86_64__)
  if (level == Level::avx2) return pass_fields_avx2(p, row_end, readable, delimiter, n);
#endif
  (void)level;
  (void)readable;
  return pass_fields_plain(p, row_end, delimiter, n);
}

void read_numbers(Level level, const NumberPass& pass) noexcept {
#if defined(__x86_64__)
  if (level == Level::avx2) {
    const Done done = read_rows_avx2(pass);
    read_rows_plain(level, pass, 0, done.first);
    read_rows_plain(level, pass, done.last, pass.span.rows);
    return;
  }
#endif
  read_rows_plain(level, pass, 0, pass.span.rows);
}

}  // namespace mirn2::rd::scan
