#include "functions/kernels/unpack.h"

namespace mirn2::fn::kernels {

namespace {

constexpr uint64_t top_bit = uint64_t{1} << 63;

// 2^63 itself is the first value that a signed word does not hold.
inline uint64_t word(double value) noexcept {
  constexpr double half = 0x1p63;
  if (value >= -half && value < half) return static_cast<uint64_t>(static_cast<int64_t>(value));
  if (value >= half && value < 2 * half)
    return static_cast<uint64_t>(static_cast<int64_t>(value - half)) | top_bit;
  return top_bit;
}

constexpr uint64_t power_of_two(uint64_t bit) { return uint64_t{1} << (bit & 63); }

// Sixteen digits at once: neighbours are joined into pairs, pairs into fours and so on. No sum leaves
// its place, as the highest, of sixteen digits of 15, is below 2^63.
uint64_t decimal(uint64_t w) {
  constexpr uint64_t nibbles = 0x0F0F0F0F0F0F0F0F;
  constexpr uint64_t bytes = 0x00FF00FF00FF00FF;
  constexpr uint64_t words = 0x0000FFFF0000FFFF;
  w = (w & nibbles) + 10 * ((w >> 4) & nibbles);
  w = (w & bytes) + 100 * ((w >> 8) & bytes);
  w = (w & words) + 10'000 * ((w >> 16) & words);
  return (w & 0xFFFFFFFF) + 100'000'000 * (w >> 32);
}

// No field is wider than 63 bits, so signed conversion, the cheaper one, serves every coding.
inline double number(uint64_t field) { return static_cast<double>(static_cast<int64_t>(field)); }

}  // namespace

uint64_t raw_word(double value) noexcept { return word(value); }

void unpack(Axis y, BitField field, Coding coding, Result out) {
  const double gain = field.gain;
  const double bias = field.bias;
  const uint64_t shift = field.lsb & 63;
  const uint64_t all = power_of_two(field.msb + 1) - 1;  // bits 0 to msb
  const uint64_t sign = power_of_two(field.msb);
  const uint64_t below = sign - 1;
  switch (coding) {
    case Coding::unsigned_binary:
      return each(out, [=](size_t i) { return number((word(y[i]) & all) >> shift) * gain + bias; });
    case Coding::sign_magnitude:
      return each(out, [=](size_t i) {
        const uint64_t raw = word(y[i]);
        return (number((raw & below) >> shift) * gain + bias) * ((raw & sign) != 0 ? -1.0 : 1.0);
      });
    case Coding::twos_complement:
      return each(out, [=](size_t i) {
        const uint64_t raw = word(y[i]);
        return number(((raw & below) >> shift) - ((raw & sign) >> shift)) * gain + bias;
      });
    case Coding::bcd:
      return each(out, [=](size_t i) { return number(decimal((word(y[i]) & all) >> shift)) * gain + bias; });
  }
}

}  // namespace mirn2::fn::kernels
