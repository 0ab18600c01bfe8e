// The loops over delimited text with 32-byte vectors. Same results as the plain level.
#pragma once

#include "readers/delimited_scan.h"

#if defined(__x86_64__)
namespace mirn2::rd::scan {

size_t find_line_starts_avx2(LineSearch& search, const char* end, const char* base, uint32_t* out,
                             size_t room) noexcept;

const char* pass_fields_avx2(const char* p, const char* row_end, const char* readable, char delimiter,
                             uint64_t n) noexcept;

// Rows of a pass: first <= row < last.
struct Done {
  size_t first = 0;
  size_t last = 0;
};

// Reads as many rows of the pass as this level can, and returns which: all but a few at the ends.
Done read_rows_avx2(const NumberPass& pass) noexcept;

}  // namespace mirn2::rd::scan
#endif
