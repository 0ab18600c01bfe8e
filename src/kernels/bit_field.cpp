// Decodes bit fields that were recorded as floating-point numbers.
#include "kernels/bit_field.h"

#include <algorithm>

#include "kernels/lanes.h"

namespace mirn2::kernels {

namespace {

constexpr uint64_t top_bit = uint64_t{1} << 63;

constexpr uint64_t nibbles = 0x0F0F0F0F0F0F0F0F;
constexpr uint64_t bytes = 0x00FF00FF00FF00FF;
constexpr uint64_t words = 0x0000FFFF0000FFFF;

// Conversions between numbers and words that hold for all of them, one by one, ...
struct AnySize {
  using Word = uint64_t;
  static Word word(double value) { return raw_word(value); }

  // No field is wider than 63 bits, so the conversion of signed words, the cheaper one, serves them all.
  static double number(Word field) { return static_cast<double>(static_cast<int64_t>(field)); }
  static double difference(Word a, Word b) { return number(a - b); }
  static double negated_if(Word sign_bit, double value) { return sign_bit != 0 ? -value : value; }

  // Sixteen digits at once: neighbours are joined into pairs, pairs into fours and so on. No sum leaves its
  // place, as the highest, of sixteen digits of 15, is below 2^63.
  static double decimal(Word w) {
    w = (w & nibbles) + 10 * ((w >> 4) & nibbles);
    w = (w & bytes) + 100 * ((w >> 8) & bytes);
    w = (w & words) + 10'000 * ((w >> 16) & words);
    return number((w & 0xFFFFFFFF) + 100'000'000 * (w >> 32));
  }
};

// ... and for those below 2^52, in lanes: adding 2^52 moves an integer into the low bits.
struct Small {
  using Word = Masks;
  static constexpr double bound = 0x1p52;

  static Masks fits(Lanes value) { return bits(size(value) < lanes(bound)); }
  static Word word(Lanes value) {
    const Lanes whole = size(value);
    const Lanes nearest = (whole + lanes(bound)) - lanes(bound);
    const Lanes truncated = nearest - logic(bits(nearest > whole));
    const Masks minus = bits(value < lanes(0.0));
    return ((bits(truncated + lanes(bound)) ^ bits(lanes(bound))) ^ minus) - minus;
  }
  static Lanes number(Word field) { return numbers(field | bits(lanes(bound))) - lanes(bound); }
  static Lanes difference(Word a, Word b) { return number(a) - number(b); }
  static Lanes negated_if(Word sign_bit, Lanes value) { return numbers(bits(value) ^ (sign_bit << 63)); }

  // The same in products of the width that the places have, which are cheaper; 13 digits at most.
  static Lanes decimal(Word w) {
    using Places16 = uint16_t __attribute__((vector_size(16)));
    using Places32 = uint32_t __attribute__((vector_size(16)));
    w = (w & nibbles) + bits(std::bit_cast<Places16>((w >> 4) & nibbles) * uint16_t{10});
    w = (w & bytes) + bits(std::bit_cast<Places16>((w >> 8) & bytes) * uint16_t{100});
    w = (w & words) + bits(std::bit_cast<Places32>((w >> 16) & words) * uint32_t{10'000});
    return number(w & 0xFFFFFFFF) + number(w >> 32) * lanes(1e8);
  }

 private:
  static Lanes size(Lanes value) { return numbers(bits(value) & masks(~uint64_t{0} >> 1)); }
};

constexpr uint64_t power_of_two(uint64_t bit) { return uint64_t{1} << (bit & 63); }

// out[i] = decode(conversions, y[i]): in lanes where the samples and the field allow it.
template <typename Decode>
void each_word(Axis y, bool is_narrow, Result out, Decode decode) {
  in_parts(out.size(), [=](size_t first, size_t last) {
    const double* const from = y.data() + first;
    double* const to = out.data() + first;
    constexpr size_t block = 64;
    for (size_t begin = 0; begin < last - first; begin += block) {
      const size_t length = std::min(block, last - first - begin);
      Masks all_fit = masks(is_narrow ? ~uint64_t{0} : 0);
      in_lanes(length, [&](size_t i, auto count) { all_fit &= Small::fits(load(from + begin + i, count)); });
      if ((all_fit[0] & all_fit[1]) != 0) {
        in_lanes(length, [=](size_t i, auto count) {
          store(to + begin + i, decode(Small{}, load(from + begin + i, count)), count);
        });
      } else {
        for (size_t i = begin; i < begin + length; ++i) to[i] = decode(AnySize{}, from[i]);
      }
    }
  });
}

}  // namespace

uint64_t raw_word(double value) noexcept {
  constexpr double half = 0x1p63;  // the first that a signed word does not hold
  if (value >= -half && value < half) return static_cast<uint64_t>(static_cast<int64_t>(value));
  if (value >= half && value < 2 * half)
    return static_cast<uint64_t>(static_cast<int64_t>(value - half)) | top_bit;
  return top_bit;
}

void decode_bits(Axis y, BitField field, Coding coding, Result out) {
  const double gain = field.gain;
  const double bias = field.bias;
  const uint64_t shift = field.lsb & 63;
  const uint64_t last = field.msb & 63;
  const uint64_t all = power_of_two(field.msb + 1) - 1;  // bits 0 to msb
  const uint64_t sign = power_of_two(last);
  const uint64_t below = sign - 1;
  const bool is_narrow = ((all | sign) >> shift) < uint64_t{1} << 52;
  switch (coding) {
    case Coding::unsigned_binary:
      return each_word(y, is_narrow, out, [=](auto as, auto value) {
        return as.number((as.word(value) & all) >> shift) * gain + bias;
      });
    case Coding::sign_magnitude:
      return each_word(y, is_narrow, out, [=](auto as, auto value) {
        const auto raw = as.word(value);
        return as.negated_if((raw >> last) & 1, as.number((raw & below) >> shift) * gain + bias);
      });
    case Coding::twos_complement:
      return each_word(y, is_narrow, out, [=](auto as, auto value) {
        const auto raw = as.word(value);
        return as.difference((raw & below) >> shift, (raw & sign) >> shift) * gain + bias;
      });
    case Coding::bcd:
      return each_word(y, is_narrow, out, [=](auto as, auto value) {
        return as.decimal((as.word(value) & all) >> shift) * gain + bias;
      });
  }
}

}  // namespace mirn2::kernels
