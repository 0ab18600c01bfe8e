// Doubles as text with a fixed number of decimals, to the last digit what printf("%.*f") writes: the
// exact binary value is rounded, ties to even.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace mirn2::kernels {

__extension__ typedef unsigned __int128 uint128_t;

// The most decimals that these functions serve, and the room they ask for.
inline constexpr int most_fast_decimals = 17;
inline constexpr int most_fast_text = 24;

inline constexpr struct DigitPairs {
  char text[200];
  constexpr DigitPairs() : text{} {
    for (int i = 0; i < 100; ++i) {
      text[2 * i] = static_cast<char>('0' + i / 10);
      text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
  }
} digit_pairs;

inline constexpr struct PowersOfTen {
  uint64_t value[19];
  constexpr PowersOfTen() : value{} {
    value[0] = 1;
    for (int i = 1; i < 19; ++i) value[i] = value[i - 1] * 10;
  }
} powers_of_ten;

// Writes `number`, without leading zeros.
inline char* write_integer(char* out, uint64_t number) {
  char room[20];
  char* first = room + sizeof room;
  while (number >= 100) {
    first -= 2;
    std::memcpy(first, digit_pairs.text + number % 100 * 2, 2);
    number /= 100;
  }
  if (number >= 10) {
    first -= 2;
    std::memcpy(first, digit_pairs.text + number * 2, 2);
  } else {
    *--first = static_cast<char>('0' + number);
  }
  const auto length = static_cast<size_t>(room + sizeof room - first);
  std::memcpy(out, first, length);
  return out + length;
}

// Writes the last `digits` decimal digits of `number`, leading zeros included.
inline char* write_digits(char* out, uint64_t number, int digits) {
  char* p = out + digits;
  for (; p - out >= 2; number /= 100) {
    p -= 2;
    std::memcpy(p, digit_pairs.text + number % 100 * 2, 2);
  }
  if (p != out) *out = static_cast<char>('0' + number % 10);
  return out + digits;
}

// Writes `value` with `decimals` (0 to most_fast_decimals) into at least most_fast_text characters and
// returns the end of the text. Null, and nothing written, when the number takes another way: not finite,
// above 2^53, or 10^18 and more in units of its last decimal.
inline char* write_decimal(char* out, double value, int decimals) {
  const auto bits = std::bit_cast<uint64_t>(value);
  const int biased = static_cast<int>(bits >> 52 & 0x7ff);
  const uint64_t fraction = bits & ((uint64_t{1} << 52) - 1);
  // value = mantissa * 2^-shift
  const uint64_t mantissa = biased != 0 ? fraction | uint64_t{1} << 52 : fraction;
  const int shift = 1075 - (biased != 0 ? biased : 1);
  if (shift < 0) return nullptr;  // not finite among them

  const uint64_t scale = powers_of_ten.value[decimals];
  const uint128_t product = uint128_t{mantissa} * scale;
  uint64_t units = 0;
  if (shift == 0) {
    if (product >= powers_of_ten.value[18]) return nullptr;
    units = static_cast<uint64_t>(product);
  } else if (shift < 128) {  // else less than half a unit: the product has fewer than 113 bits
    const uint128_t whole = product >> shift;
    if (whole >= powers_of_ten.value[18] - 1) return nullptr;
    units = static_cast<uint64_t>(whole);
    const uint128_t rest = product - (whole << shift);
    const uint128_t half = uint128_t{1} << (shift - 1);
    units += rest > half || (rest == half && (units & 1) != 0);
  }
  if ((bits >> 63) != 0) *out++ = '-';
  if (decimals == 0) return write_integer(out, units);
  const uint64_t integer = units / scale;
  out = write_integer(out, integer);
  *out++ = '.';
  return write_digits(out, units - integer * scale, decimals);
}

// The eight decimal digits of a number below 10^8 as text, the first digit in the lowest byte. Two
// numbers of four digits, then four of two, then eight of one are divided side by side in one register;
// the factors are reciprocals of 100 and 10 that are exact in these ranges.
inline uint64_t eight_digits(uint32_t number) {
  uint64_t v = number / 10'000 | uint64_t{number % 10'000} << 32;
  uint64_t quotients = (v * 10'486 >> 20) & 0x0000'007f'0000'007f;
  v = quotients | (v - quotients * 100) << 16;
  quotients = (v * 103 >> 10) & 0x000f'000f'000f'000f;
  return quotients | (v - quotients * 10) << 8;
}

// The same text as write_decimal(out, value, 6), and as much room, without a branch that depends on the
// digits, for numbers below 10^8. These are nearly all of those that are recorded.
inline char* write_six_decimals(char* out, double value) {
  static_assert(std::endian::native == std::endian::little, "the first digit is to lie in front");
  constexpr uint64_t scale = 1'000'000;
  const auto bits = std::bit_cast<uint64_t>(value);
  const int biased = static_cast<int>(bits >> 52 & 0x7ff);
  const int shift = 1075 - biased;
  uint64_t units = 0;
  if (shift > 0 && shift < 64) {
    const uint64_t mantissa = (bits & ((uint64_t{1} << 52) - 1)) | uint64_t{1} << 52;
    const uint128_t product = uint128_t{mantissa} * scale;
    const auto low = static_cast<uint64_t>(product);
    const auto high = static_cast<uint64_t>(product >> 64);  // below 2^9
    if (high >> shift != 0) return write_decimal(out, value, 6);
    // `rest` against one half, both moved up to fill 64 bits
    const uint64_t rest = low << (64 - shift);
    constexpr uint64_t half = uint64_t{1} << 63;
    units = high << (64 - shift) | low >> shift;
    units += static_cast<uint64_t>(rest > half) | (static_cast<uint64_t>(rest == half) & units);
    if (units >= 100'000'000 * scale) return write_decimal(out, value, 6);
  } else if (bits << 1 != 0) {
    return write_decimal(out, value, 6);
  }
  constexpr uint64_t zeros = 0x3030'3030'3030'3030;
  *out = '-';
  out += bits >> 63;
  const uint64_t integer = eight_digits(static_cast<uint32_t>(units / scale));
  const int blank_bits = std::countr_zero(integer | uint64_t{1} << 56) & ~7;  // the last digit stays
  const uint64_t integer_text = (integer | zeros) >> blank_bits;
  std::memcpy(out, &integer_text, 8);
  out += 8 - blank_bits / 8;
  // two digits too many in front, so the point takes the place of one and the other goes
  const uint64_t decimals = eight_digits(static_cast<uint32_t>(units % scale)) | zeros;
  const uint64_t decimals_text = decimals >> 16 << 8 | '.';
  std::memcpy(out, &decimals_text, 8);
  return out + 7;
}

}  // namespace mirn2::kernels
