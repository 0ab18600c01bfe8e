// Decoding of a bit field that was recorded as a floating-point number.
#pragma once

#include <cstdint>

#include "kernels/axis.h"

namespace mirn2::kernels {

// Bits are counted from 0, the lowest. Bit numbers are taken modulo 64 wherever they shift, as the
// processor does: with msb = 63 the mask of the unsigned and BCD codings is 2^0 - 1 = 0.
struct BitField {
  uint64_t msb;
  uint64_t lsb;
  double gain;
  double bias;
};

enum class Coding : uint8_t {
  unsigned_binary,  // v * gain + bias
  sign_magnitude,   // the sign is bit msb: (v * gain + bias), negated when it is set
  twos_complement,  // v from bits below msb, less the weight of bit msb
  bcd,              // sixteen decimal digits of four bits; a digit above 9 counts at its face value
};

// The 64-bit word that a recorded value stands for: truncated toward zero, negative values as two's
// complement, values from 2^63 on as unsigned. What has no such word (NaN, below -2^63, 2^64 and above)
// gives the word with only the top bit set.
uint64_t raw_word(double value) noexcept;

// out[i] = the field of raw_word(y[i]), decoded.
void decode_bits(Axis y, BitField field, Coding coding, Result out);

}  // namespace mirn2::kernels
