// Kinds that treat numbers as words of bits, or as numbers of another type.
#include "blocks/kind.h"

namespace plexo {

namespace {

using enum Property;

constexpr std::string_view number_types[] = {"double", "single", "bool",  "int8",  "uint8",
                                             "int16",  "uint16", "int32", "uint32"};
constexpr Bounds whole_types[] = {whole(-128, 127),
                                  whole(0, 255),
                                  whole(-32768, 32767),
                                  whole(0, 65535),
                                  whole(-2147483648.0, 2147483647.0),
                                  whole(0, 4294967295.0)};

constexpr std::string_view word_operations[] = {"and", "or", "xor", "shl", "shr", "not"};
constexpr Op word_ops[] = {Op::bits_and,   Op::bits_or,     Op::bits_xor,
                           Op::shift_left, Op::shift_right, Op::bits_not};

constexpr std::string_view codings[] = {"usgn", "sgn", "2c", "bcd"};
constexpr Op coding_ops[] = {Op::field_unsigned, Op::field_signed, Op::field_complement, Op::field_decimal};

constexpr double top_bit = 62;

void lower_cast(const Values& v, Lowered& to) {
  constexpr Op plain[] = {Op::copy, Op::to_single, Op::truth};
  const size_t choice = static_cast<size_t>(v.choice(type));
  if (choice < std::size(plain)) return to.become(plain[choice]);
  const Bounds& bounds = whole_types[choice - std::size(plain)];
  to.become(Op::to_whole, {bounds.lowest, bounds.highest});
}

std::optional<Property> check_bits(const Values& v) {
  if (v.number(lsb) + v.number(outport_count) > top_bit + 1) return lsb;
  return std::nullopt;
}

}  // namespace

Kinds word_kinds() {
  return {
      {.type = "cast",
       .family = "Words",
       .ports = {1, 1},
       .texts = {{.property = type, .choices = number_types}},
       .lower = lower_cast,
       .rule =
           "\"double\": u; \"single\": the nearest float; \"bool\": u true → 1 : 0; the whole types: toward "
           "zero, within their range, NaN → 0"},
      {.type = "bitwise",
       .family = "Words",
       .ports_of =
           [](const Values& v) {
             return Ports{v.text(operation) == "not" ? 1u : 2u, 1};
           },
       .texts = {{.property = operation, .choices = word_operations}},
       .lower = [](const Values& v, Lowered& to) { to.become(word_ops[v.choice(operation)]); },
       .rule = "inputs as `cast` to uint32, \"not\" has one; the result modulo 2^32; a shift by 32 or more "
               "gives 0"},
      {.type = "unpack",
       .family = "Words",
       .ports = {1, 1},
       .numbers = {{msb, 0, whole(0, top_bit)}, {lsb, 0, whole(0, top_bit)}, {coeff_a, 1}, {coeff_b, 0}},
       .texts = {{.property = type, .choices = codings, .ignores_case = true}},
       .lower =
           [](const Values& v, Lowered& to) {
             to.become(coding_ops[v.choice(type)],
                       {v.number(msb), v.number(lsb), v.number(coeff_a), v.number(coeff_b)});
           },
       .rule =
           "word = u toward zero as 64-bit two's complement (within its range, NaN → 0); bits msb to lsb of "
           "it, decoded as `kvalo.unpack` does, with gain coeffA and bias coeffB"},
      {.type = "bits",
       .family = "Words",
       .ports_of =
           [](const Values& v) {
             return Ports{1, static_cast<unsigned>(v.number(outport_count))};
           },
       .numbers = {{lsb, 0, whole(0, top_bit)}, {outport_count, 8, whole(1, 32)}},
       .check = check_bits,
       .lower = [](const Values& v, Lowered& to) { to.become(Op::bits, {v.number(lsb)}); },
       .rule = "output i is bit lsb + i − 1 of the word (as for `unpack`); lsb + outportCount is at most 63"},
  };
}

}  // namespace plexo
