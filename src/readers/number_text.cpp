// Numbers written as text, one at a time.
#include "readers/number_text.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace mirn2::rd {

namespace {

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

// So many digits always stay below 2^53.
constexpr int exact_digits = 15;

bool is_digit(char c) { return static_cast<unsigned char>(c - '0') < 10; }

double read_any_number(const char* first, const char* last) noexcept {
  double value = 0;
  const auto result = std::from_chars(first, last, value, std::chars_format::general);
  return result.ec == std::errc() ? value : not_a_number;
}

int hexadecimal_digit(char c) {
  if (is_digit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool is_white(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

double read_number(const char* first, const char* last) noexcept {
  const char* p = first;
  const bool negative = p != last && *p == '-';
  p += negative;

  uint64_t mantissa = 0;
  int digits = 0;
  int fraction = 0;
  for (; p != last && is_digit(*p) && digits <= exact_digits; ++p, ++digits) {
    mantissa = mantissa * 10 + static_cast<uint64_t>(*p - '0');
  }
  if (p != last && *p == '.') {
    for (++p; p != last && is_digit(*p) && digits <= exact_digits; ++p, ++digits, ++fraction) {
      mantissa = mantissa * 10 + static_cast<uint64_t>(*p - '0');
    }
  }
  // No digits may be an infinity; an exponent or many digits need the full rules.
  const bool exponent = p != last && (*p == 'e' || *p == 'E');
  if (digits == 0 || digits > exact_digits || exponent) return read_any_number(first, last);

  const double magnitude = static_cast<double>(mantissa) / exact_powers_of_ten[static_cast<size_t>(fraction)];
  return negative ? -magnitude : magnitude;
}

double read_hexadecimal(const char* first, const char* last) noexcept {
  const char* p = first;
  while (p != last && is_white(*p)) ++p;
  const bool negative = p != last && *p == '-';
  if (p != last && (*p == '-' || *p == '+')) ++p;
  if (last - p > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && hexadecimal_digit(p[2]) >= 0) p += 2;

  const uint64_t most = static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (negative ? 1 : 0);
  uint64_t magnitude = 0;
  for (; p != last; ++p) {
    const int digit = hexadecimal_digit(*p);
    if (digit < 0) break;
    if (magnitude > (most - static_cast<uint64_t>(digit)) / 16) {
      magnitude = most;
      break;
    }
    magnitude = magnitude * 16 + static_cast<uint64_t>(digit);
  }
  // The sign goes to the integer, which has no negative zero.
  return static_cast<double>(static_cast<int64_t>(negative ? 0 - magnitude : magnitude));
}

}  // namespace mirn2::rd
