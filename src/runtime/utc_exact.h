// Decimal numbers to the nearest double, for numbers in two parts: whole units and a decimal fraction.
#pragma once

#include <array>
#include <cstdint>

namespace mirn3::utc {

__extension__ typedef unsigned __int128 uint128_t;

// Digits that a fraction, or an integer, may have so that everything below is exact.
inline constexpr int most_digits = 18;

inline constexpr auto powers_of_ten = [] {
  std::array<uint64_t, most_digits + 1> powers{1};
  for (int i = 1; i <= most_digits; ++i) powers[i] = powers[i - 1] * 10;
  return powers;
}();

// The double nearest to whole + fraction / 10^digits, with digits up to most_digits and fraction below
// 10^digits.
inline double nearest(uint64_t whole, uint64_t fraction, int digits) {
  const uint64_t scale = powers_of_ten[digits];
  if (fraction == 0) return static_cast<double>(whole);

  // One division of two exactly represented integers rounds once.
  constexpr uint64_t exact = uint64_t{1} << 53;
  if (const uint128_t all = uint128_t{whole} * scale + fraction; all < exact) {
    return static_cast<double>(static_cast<uint64_t>(all)) / static_cast<double>(scale);
  }
  // Here the number has 55 bits or more in front of the last of these 64 fraction bits. So that bit can
  // stand for everything after it, and the conversion to double, which rounds once, sees it.
  const uint128_t shifted = uint128_t{fraction} << 64;
  uint128_t bits = (uint128_t{whole} << 64) | (shifted / scale);
  if (shifted % scale != 0) bits |= 1;
  constexpr double two_to_64 = 18446744073709551616.0;
  return static_cast<double>(bits) / two_to_64;
}

// The double nearest to whole + fraction / 10^digits where whole may be negative (and the fraction still
// counts upwards).
inline double nearest_signed(int64_t whole, uint64_t fraction, int digits) {
  if (whole >= 0) return nearest(static_cast<uint64_t>(whole), fraction, digits);
  const auto magnitude = static_cast<uint64_t>(-whole);
  if (fraction == 0) return -nearest(magnitude, 0, digits);
  return -nearest(magnitude - 1, powers_of_ten[digits] - fraction, digits);
}

}  // namespace mirn3::utc
