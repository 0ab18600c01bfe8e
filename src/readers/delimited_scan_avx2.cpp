// The loops over delimited text with 32-byte vectors.
#include "readers/delimited_scan_avx2.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "readers/delimited_scan_rows.h"

#define KVALO_AVX2 __attribute__((target("avx2,bmi,bmi2,popcnt")))
#define KVALO_AVX2_INLINE __attribute__((target("avx2,bmi,bmi2,popcnt"), always_inline)) inline

namespace mirn2::rd::scan {

namespace {

KVALO_AVX2_INLINE __m256i load32(const char* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

KVALO_AVX2_INLINE uint32_t mask_of(__m256i bytes) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(bytes));
}

}  // namespace

KVALO_AVX2 size_t find_line_starts_avx2(LineSearch& search, const char* end, const char* base, uint32_t* out,
                                        size_t room) noexcept {
  const __m256i feed = _mm256_set1_epi8('\n');
  __m256i least = _mm256_set1_epi8(-1);
  uint64_t before = search.at_line_start;
  size_t found = 0;
  const char* p = search.at;
  for (; end - p >= 64 && found + line_room <= room; p += 64) {
    const __m256i low = load32(p);
    const __m256i high = load32(p + 32);
    uint64_t feeds =
        mask_of(_mm256_cmpeq_epi8(low, feed)) | (uint64_t{mask_of(_mm256_cmpeq_epi8(high, feed))} << 32);
    // A line feed at the start of a line is left to the plain loop below.
    if ((feeds & ((feeds << 1) | before)) != 0) break;
    least = _mm256_min_epu8(least, _mm256_min_epu8(low, high));
    before = feeds >> 63;
    const auto offset = static_cast<uint32_t>(p - base) + 1;
    for (; feeds != 0; feeds &= feeds - 1) {
      out[found++] = offset + static_cast<uint32_t>(_tzcnt_u64(feeds));
    }
  }
  if (mask_of(_mm256_cmpeq_epi8(least, _mm256_setzero_si256())) != 0) search.has_zero = true;
  bool line_start = before != 0;
  for (const char* last = end - p < 64 ? end : p + 64; p != last && found < room; ++p) {
    if (*p == '\0') search.has_zero = true;
    if (*p == '\n') {
      if (line_start) {
        search.empty_line = p;
        break;
      }
      out[found++] = static_cast<uint32_t>(p - base) + 1;
    }
    line_start = *p == '\n';
  }
  search.at = p;
  search.at_line_start = line_start;
  return found;
}

KVALO_AVX2 const char* pass_fields_avx2(const char* p, const char* row_end, const char* readable,
                                        char delimiter, uint64_t n) noexcept {
  const __m256i separator = _mm256_set1_epi8(delimiter);
  const __m256i carriage_return = _mm256_set1_epi8('\r');
  while (readable - p >= 32 && p < row_end) {
    const __m256i text = load32(p);
    uint32_t separators = mask_of(_mm256_cmpeq_epi8(text, separator));
    // All characters up to the carriage return in one comparison; only few lines have any of them.
    const __m256i low = _mm256_cmpeq_epi8(_mm256_min_epu8(text, carriage_return), text);
    if (_mm256_testz_si256(low, low) == 0) {
      const __m256i ends = _mm256_or_si256(_mm256_cmpeq_epi8(text, _mm256_setzero_si256()),
                                           _mm256_or_si256(_mm256_cmpeq_epi8(text, carriage_return),
                                                           _mm256_cmpeq_epi8(text, _mm256_set1_epi8('\n'))));
      const uint32_t row_ends = mask_of(ends);
      if (row_ends != 0) {
        separators &= (row_ends & (0U - row_ends)) - 1;
        if (static_cast<uint64_t>(_mm_popcnt_u32(separators)) < n) return nullptr;
      }
    }
    const auto passed = static_cast<uint64_t>(_mm_popcnt_u32(separators));
    if (passed >= n) {
      for (uint64_t i = 1; i < n; ++i) separators &= separators - 1;
      p += _tzcnt_u32(separators) + 1;
      return p <= row_end ? p : nullptr;
    }
    n -= passed;
    p += 32;
  }
  return pass_fields_plain(p, row_end, delimiter, n);
}

namespace {

// Moves the digits of a field to the right end of a vector: [has minus][decimal point][end], where a
// field without a point has it at its end. Bytes that no digit moves to become zero.
struct DigitMoves {
  std::array<std::array<std::array<std::array<uint8_t, 16>, 17>, 17>, 2> table{};

  constexpr DigitMoves() {
    for (size_t minus = 0; minus < 2; ++minus) {
      for (size_t point = 0; point < 17; ++point) {
        for (size_t end = 0; end < 17; ++end) {
          auto& move = table[minus][point][end];
          for (auto& byte : move) byte = 0x80;
          size_t to = 16;
          for (size_t from = end; from > minus; --from) {
            if (from - 1 != point) move[--to] = static_cast<uint8_t>(from - 1);
          }
        }
      }
    }
  }
};
alignas(64) constexpr DigitMoves digit_moves;

// Divisors by the distance from the point to the end of the field, for both signs: dividing by a
// negative one keeps the sign of zero, too.
struct Divisors {
  double table[2][17] = {};

  constexpr Divisors() {
    for (size_t i = 0; i < 17; ++i) {
      table[0][i] = exact_powers_of_ten[i == 0 ? 0 : i - 1];
      table[1][i] = -table[0][i];
    }
  }
};
constexpr Divisors divisors;

// What a row that is over points at.
alignas(32) constexpr char over_text[32] = {'\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n',
                                            '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n',
                                            '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n'};

// So many rows advance together: reading one field gives the start of the next only after some twenty
// cycles, in which the other rows' fields are read.
constexpr size_t lanes = 4;

// Values are gathered by column and go out in runs, as outputs often lie a power of two apart and their
// lines would push each other out of the cache.
constexpr size_t gathered_rows = 32;

// Rows this near to the end of the memory are left to the plain level: a vector reads past the field,
// and should another process change the file meanwhile, `most_fields` fields may be taken for longer
// than the row.
constexpr ptrdiff_t reach = (most_fields + 2) * 17;

// The field at p as a plain number: an optional minus and up to 15 digits with or without a point.
// Returns its length and puts the value; 0 if it has another form.
KVALO_AVX2_INLINE uint32_t read_plain_number(const char* p, double& value) {
  const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i digits = _mm_sub_epi8(text, _mm_set1_epi8('0'));
  const __m128i is_digit = _mm_cmpeq_epi8(_mm_min_epu8(digits, _mm_set1_epi8(9)), digits);
  const auto points = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(text, _mm_set1_epi8('.'))));
  const uint32_t minus = *p == '-';
  // Bit i says that character i is no digit; the bit behind the vector ends every field.
  const uint32_t others = (static_cast<uint32_t>(_mm_movemask_epi8(is_digit)) ^ 0x1ffff) ^ minus;
  const uint32_t point = _tzcnt_u32(others);
  const uint32_t end = _tzcnt_u32(others ^ (_blsi_u32(others) & points));
  const uint32_t count = end - minus - (end != point);
  if (count - 1 >= 15) return 0;

  const __m128i move =
      _mm_load_si128(reinterpret_cast<const __m128i*>(digit_moves.table[minus][point][end].data()));
  const __m128i ones = _mm_shuffle_epi8(digits, move);
  const __m128i pairs = _mm_maddubs_epi16(ones, _mm_set1_epi16(0x010a));
  const __m128i fours = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00010064));
  const __m128i packed = _mm_packus_epi32(fours, fours);
  const __m128i eights = _mm_madd_epi16(packed, _mm_set1_epi32(0x00012710));
  const auto halves = static_cast<uint64_t>(_mm_cvtsi128_si64(eights));
  const uint64_t mantissa = (halves & 0xffffffff) * 100000000 + (halves >> 32);
  value = static_cast<double>(static_cast<int64_t>(mantissa)) / divisors.table[minus][end - point];
  return end;
}

}  // namespace

KVALO_AVX2 size_t read_rows_avx2(const NumberPass& pass) noexcept {
  const char delimiter = pass.delimiter;
  // These could not be told from the characters of a number.
  if ((delimiter >= '0' && delimiter <= '9') || delimiter == '.' || delimiter == '-') return 0;
  size_t rows = pass.span.rows;
  while (rows != 0 && pass.span.readable - pass.span.end(rows - 1) < reach) --rows;
  rows -= rows % lanes;

  alignas(64) double gathered[most_fields][gathered_rows + 8];
  for (size_t block = 0; block < rows; block += gathered_rows) {
    const size_t in_block = std::min(gathered_rows, rows - block);
    for (size_t group = 0; group < in_block; group += lanes) {
      const char* p[lanes];
      for (size_t lane = 0; lane < lanes; ++lane) {
        p[lane] = first_field(Level::avx2, pass, block + group + lane);
        if (p[lane] == nullptr) p[lane] = over_text;
      }
      for (size_t k = 0; k < pass.fields; ++k) {
        double* values = &gathered[k][group];
#pragma GCC unroll 4
        for (size_t lane = 0; lane < lanes; ++lane) {
          const uint32_t length = read_plain_number(p[lane], values[lane]);
          const char after = p[lane][length];
          if (length != 0 && after == delimiter) [[likely]] {
            p[lane] += length + 1;
          } else if (length != 0 && ends_row(after)) {
            p[lane] = over_text;
          } else {
            const char* start = p[lane] != over_text ? p[lane] : nullptr;
            const char* next = read_field(start, pass.span.end(block + group + lane), delimiter,
                                          pass.time_first && k == 0, values[lane], pass.odd[k]);
            p[lane] = next != nullptr ? next : over_text;
          }
        }
      }
      if (pass.to != nullptr) {
        for (size_t lane = 0; lane < lanes; ++lane) {
          const size_t row = block + group + lane;
          pass.to[row] = left_at(pass.span.start(row), p[lane] != over_text ? p[lane] : nullptr);
        }
      }
    }
    for (size_t k = 0; k < pass.fields; ++k) {
      std::memcpy(pass.out[k] + block, gathered[k], in_block * sizeof(double));
    }
  }
  return rows;
}

}  // namespace mirn2::rd::scan
#endif
