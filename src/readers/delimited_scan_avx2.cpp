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

// How the characters of a plain number become its value, by where its minus and its point stand and by its
// length. A field without a point counts as one with the point after its last digit.
struct NumberForms {
  struct alignas(32) Form {
    uint8_t moves[16];  // the digits to the right end of a vector, zeros before them
    double divisor;     // by the digits after the point; negative ones keep the sign of zero too
    uint8_t refused;    // all bits set: not a plain number
  };

  static constexpr size_t longest = 16;  // characters
  static constexpr size_t most_digits = 15;
  static constexpr size_t lengths = 32;  // a power of two for the sake of cheap indexes
  static constexpr size_t no_number = 32;

  Form table[no_number + 1][lengths];
  // Row of the table times `lengths`, by a field's marks: bit 0 for a minus, bit i for a point at i.
  uint16_t row_of[size_t{1} << longest];

  NumberForms() {
    for (auto& row : table) {
      for (Form& form : row) {
        form.divisor = 1.0;
        form.refused = 0xff;
        for (uint8_t& move : form.moves) move = 0x80;
      }
    }
    for (uint16_t& row : row_of) row = no_number * lengths;
    for (size_t minus = 0; minus < 2; ++minus) {
      add(minus, 0);
      for (size_t point = minus + 1; point < longest; ++point) add(minus, point);
    }
  }

 private:
  // The forms with or without a minus whose point stands at `point`; 0: there is none.
  void add(size_t minus, size_t point) {
    const size_t row = minus * longest + point;
    row_of[minus | (point != 0 ? size_t{1} << point : 0)] = static_cast<uint16_t>(row * lengths);
    for (size_t end = std::max(minus, point) + 1; end <= longest; ++end) {
      const size_t digits = end - minus - (point != 0);
      if (digits > most_digits) continue;
      Form& form = table[row][end];
      form.refused = 0;
      size_t from = end;
      for (size_t to = longest; to-- > longest - digits;) {
        --from;
        if (point != 0 && from == point) --from;
        form.moves[to] = static_cast<uint8_t>(from);
      }
      const double power = exact_powers_of_ten[point == 0 ? 0 : end - point - 1];
      form.divisor = minus == 0 ? power : -power;
    }
  }
};

// What a row that is over points at.
alignas(32) constexpr char over_text[32] = {'\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n',
                                            '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n',
                                            '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n'};

// So many rows advance together: reading one field gives the start of the next only after some twenty
// cycles, in which the other rows' fields are read.
constexpr size_t lanes = 4;

// Rows whose fields are taken apart before they are made into numbers, a column at a time. Whole lines
// of the outputs are written then; as outputs often lie a power of two apart, single values would push
// each other out of the cache.
constexpr size_t block_rows = 16;

// Rows this near to the end of the memory are left to the plain level: a vector reads past the field,
// and should another process change the file meanwhile, `most_fields` fields may be taken for longer
// than the row.
constexpr ptrdiff_t reach = (most_fields + 2) * 17;

// The fields of a block, taken apart: 16 digits each, in the low halves of the bytes, and what to divide
// their number by.
struct Block {
  alignas(64) uint8_t digits[most_fields][block_rows][16] = {};
  alignas(64) double divisors[most_fields][block_rows] = {};

  // Fields of any other form, by their place.
  struct Other {
    uint32_t field;
    uint32_t row;
    double value;
  };
  size_t others = 0;
  Other other[most_fields * block_rows];
};

// What a field looks like that has been taken apart.
struct Taken {
  uint64_t length;
  uint8_t after;  // the character after it; 0xff also when the field is not a plain number
};

// Takes the field at p apart if it is a plain number: an optional minus and up to 15 digits, with or without
// a point after the first of them, 16 characters at most. Every instruction counts here; what depends on the
// field is looked up, so that nothing but odd fields makes the processor guess wrong.
KVALO_AVX2_INLINE Taken take_plain_number(const char* p, const NumberForms& forms, uint8_t* digits,
                                          double& divisor) {
  const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  // The digits become the smallest of the signed numbers, with their value in the low half.
  const __m128i values = _mm_add_epi8(text, _mm_set1_epi8(0x80 - '0'));
  const __m128i behind_nine = _mm_set1_epi8(static_cast<char>(0x80 + 10));
  const __m128i signs =
      _mm_setr_epi8('-', '.', '.', '.', '.', '.', '.', '.', '.', '.', '.', '.', '.', '.', '.', '.');
  const auto is_digit = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpgt_epi8(behind_nine, values)));
  const auto marks = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(text, signs)));
  const uint64_t length = _tzcnt_u64(~uint64_t{is_digit | marks});
  const uint64_t row = forms.row_of[_bzhi_u64(marks, static_cast<uint32_t>(length))];
  const NumberForms::Form& form = (&forms.table[0][0])[row + length];
  const __m128i moves = _mm_load_si128(reinterpret_cast<const __m128i*>(form.moves));
  _mm_store_si128(reinterpret_cast<__m128i*>(digits), _mm_shuffle_epi8(values, moves));
  divisor = form.divisor;
  return {length, static_cast<uint8_t>(static_cast<uint8_t>(p[length]) | form.refused)};
}

// Makes one field of all rows of a block into numbers. `past_caches` needs an aligned `out`.
template <bool past_caches>
KVALO_AVX2_INLINE void make_numbers(const uint8_t* digits, const double* by, double* out) {
  const __m256i low_halves = _mm256_set1_epi8(0x0f);
  const __m256i tens = _mm256_set1_epi16(0x010a);
  const __m256i hundreds = _mm256_set1_epi32(0x00010064);
  const __m256i ten_thousands = _mm256_set1_epi32(0x00012710);
  // Below 2^52 an integer is the low bits of the double 2^52 + integer.
  const __m256i offset = _mm256_set1_epi64x(0x4330000000000000);
  for (size_t row = 0; row < block_rows; row += 4) {
    const auto* from = reinterpret_cast<const __m256i*>(digits + row * 16);
    const __m256i first = _mm256_and_si256(_mm256_load_si256(from), low_halves);
    const __m256i second = _mm256_and_si256(_mm256_load_si256(from + 1), low_halves);
    const __m256i low = _mm256_madd_epi16(_mm256_maddubs_epi16(first, tens), hundreds);
    const __m256i high = _mm256_madd_epi16(_mm256_maddubs_epi16(second, tens), hundreds);
    __m256i halves = _mm256_madd_epi16(_mm256_packus_epi32(low, high), ten_thousands);
    halves = _mm256_permute4x64_epi64(halves, 0xd8);  // packing works within halves of the vector
    const __m256i mantissa = _mm256_add_epi64(_mm256_mul_epu32(halves, _mm256_set1_epi64x(100000000)),
                                              _mm256_srli_epi64(halves, 32));
    const __m256d number =
        _mm256_sub_pd(_mm256_castsi256_pd(_mm256_or_si256(mantissa, offset)), _mm256_castsi256_pd(offset));
    const __m256d value = _mm256_div_pd(number, _mm256_load_pd(by + row));
    if constexpr (past_caches) {
      _mm256_stream_pd(out + row, value);
    } else {
      _mm256_storeu_pd(out + row, value);
    }
  }
}

// Rows until the output reaches the start of a cache line.
size_t rows_to_line(const double* out) {
  constexpr size_t line = 64;
  return (line - reinterpret_cast<uintptr_t>(out) % line) % line / sizeof(double);
}

// Whether all outputs of a pass reach it in the same row.
bool are_alike(const NumberPass& pass) {
  return std::all_of(pass.out, pass.out + pass.fields,
                     [&](const double* out) { return rows_to_line(out) == rows_to_line(pass.out[0]); });
}

// A field that is not a plain number. Not inlined: such fields are few or slow anyway.
__attribute__((noinline)) const char* take_other(const NumberPass& pass, Block& block, size_t k, size_t first,
                                                 size_t row, const char* p) {
  double value = 0;
  const char* next = read_field(p != over_text ? p : nullptr, pass.span.end(first + row), pass.delimiter,
                                pass.time_first && k == 0, value, pass.odd[k]);
  block.other[block.others++] = {static_cast<uint32_t>(k), static_cast<uint32_t>(row), value};
  return next != nullptr ? next : over_text;
}

}  // namespace

KVALO_AVX2 Done read_rows_avx2(const NumberPass& pass) noexcept {
  const auto delimiter = static_cast<uint8_t>(pass.delimiter);
  // These could not be told from the characters of a number, or from what is none.
  if ((delimiter >= '0' && delimiter <= '9') || delimiter == '.' || delimiter == '-' || delimiter == 0xff) {
    return {};
  }
  static const NumberForms forms;
  const bool past_caches = pass.past_caches && are_alike(pass);
  const size_t lead = past_caches ? rows_to_line(pass.out[0]) : 0;
  size_t rows = pass.span.rows;
  while (rows != 0 && pass.span.readable - pass.span.end(rows - 1) < reach) --rows;
  if (rows < lead) return {};
  rows -= (rows - lead) % block_rows;
  // Where no row has to be searched for its first field.
  const bool is_direct = pass.from == nullptr ? pass.column == 0 : pass.column == pass.from_column;

  Block block;
  for (size_t first = lead; first < rows; first += block_rows) {
    block.others = 0;
    for (size_t group = 0; group < block_rows; group += lanes) {
      const char* p[lanes];
      for (size_t lane = 0; lane < lanes; ++lane) {
        const size_t row = first + group + lane;
        const uint32_t from = pass.from != nullptr ? pass.from[row] : 0;
        if (is_direct && from < row_is_too_long) {
          p[lane] = pass.span.start(row) + from;
        } else {
          p[lane] = first_field(Level::avx2, pass, row);
          if (p[lane] == nullptr) p[lane] = over_text;
        }
      }
      size_t k = 0;
      for (; k + 1 < pass.fields; ++k) {
#pragma GCC unroll 4
        for (size_t lane = 0; lane < lanes; ++lane) {
          const size_t row = group + lane;
          const Taken taken = take_plain_number(p[lane], forms, block.digits[k][row], block.divisors[k][row]);
          if (taken.after == delimiter) [[likely]] {
            p[lane] += taken.length + 1;
          } else {
            p[lane] = take_other(pass, block, k, first, row, p[lane]);
          }
        }
      }
      // The last field may be the last of its row too.
      for (size_t lane = 0; lane < lanes; ++lane) {
        const size_t row = group + lane;
        const Taken taken = take_plain_number(p[lane], forms, block.digits[k][row], block.divisors[k][row]);
        const bool is_over = ends_row(static_cast<char>(taken.after));
        if ((taken.after == delimiter) | is_over) [[likely]] {
          p[lane] = is_over ? over_text : p[lane] + taken.length + 1;
        } else {
          p[lane] = take_other(pass, block, k, first, row, p[lane]);
        }
      }
      if (pass.to != nullptr) {
        for (size_t lane = 0; lane < lanes; ++lane) {
          const size_t row = first + group + lane;
          pass.to[row] = left_at(pass.span.start(row), p[lane] != over_text ? p[lane] : nullptr);
        }
      }
    }
    for (size_t k = 0; k < pass.fields; ++k) {
      double* const out = pass.out[k] + first;
      if (past_caches) {
        make_numbers<true>(block.digits[k][0], block.divisors[k], out);
      } else {
        make_numbers<false>(block.digits[k][0], block.divisors[k], out);
      }
    }
    for (size_t i = 0; i < block.others; ++i) {
      pass.out[block.other[i].field][first + block.other[i].row] = block.other[i].value;
    }
  }
  if (past_caches) _mm_sfence();  // before other threads are told
  return {lead, rows};
}

}  // namespace mirn2::rd::scan
#endif
