// Numbers written as text: the fields of delimited files. Pure functions over characters; nothing past
// `last` is read.
#pragma once

#include <array>
#include <cstdint>

namespace mirn2::rd {

// The number at the start of the text by the rules of std::from_chars in its general format; what
// follows it is ignored ("12abc" is 12). NaN if there is none or it exceeds the range of a double.
double read_number(const char* first, const char* last) noexcept;

// The number at the start of the text by the rules of strtoll to base 16: leading white space, a sign
// and 0x are allowed, what follows is ignored. 0 if there is none; the nearest 64-bit number if it exceeds
// their range.
double read_hexadecimal(const char* first, const char* last) noexcept;

// A mantissa below 2^53 divided by one of these is rounded once, so the quotient is the double nearest
// to the decimal number (powers of ten are exact up to 10^22).
inline constexpr std::array<double, 23> exact_powers_of_ten = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

}  // namespace mirn2::rd
