// What readers of typed columns share: raw numbers to doubles, the choice of the time axis, and the limit for
// one variable. Header only, so that every backend has its own copy.
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "runtime/exc.h"
#include "runtime/machine.h"
#include "runtime/mem.h"
#include "runtime/str.h"

namespace mirn2::rd::samples {

enum class Kind : uint8_t { i8, u8, i16, u16, i32, u32, i64, u64, f16, f32, f64 };

constexpr size_t width(Kind kind) noexcept {
  constexpr uint8_t widths[] = {1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
  return widths[static_cast<size_t>(kind)];
}

// How a number is stored in memory.
struct Number {
  Kind kind = Kind::f64;
  bool swapped = false;  // in the other byte order than this machine's

  bool is_plain_double() const noexcept { return kind == Kind::f64 && !swapped; }
};

// IEEE half precision, bit by bit.
inline double half_to_double(uint16_t bits) noexcept {
  const int exponent = bits >> 10 & 31, fraction = bits & 1023;
  double value = 0;
  if (exponent == 31) {
    value =
        fraction != 0 ? std::numeric_limits<double>::quiet_NaN() : std::numeric_limits<double>::infinity();
  } else {
    value = exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(fraction + 1024, exponent - 25);
  }
  return (bits & 0x8000) != 0 ? -value : value;
}

template <typename T>
T byte_swapped(T value) noexcept {
  if constexpr (sizeof(T) == 1) return value;
  if constexpr (sizeof(T) == 2) return static_cast<T>(__builtin_bswap16(value));
  if constexpr (sizeof(T) == 4) return __builtin_bswap32(value);
  if constexpr (sizeof(T) == 8) return __builtin_bswap64(value);
}

// n numbers of type T, `stride` bytes apart and in any alignment, to doubles. `Bits` is the unsigned integer
// of T's width.
template <typename T, typename Bits>
void widen_as(bool swapped, const unsigned char* from, size_t stride, size_t n, double* to) noexcept {
  const auto convert = [&](auto swap, size_t step) {
    for (size_t i = 0; i < n; ++i) {
      Bits bits;
      std::memcpy(&bits, from + i * step, sizeof bits);
      if constexpr (decltype(swap)::value) bits = byte_swapped(bits);
      if constexpr (std::is_same_v<T, void>) {
        to[i] = half_to_double(bits);
      } else {
        to[i] = static_cast<double>(std::bit_cast<T>(bits));
      }
    }
  };
  if (swapped) return convert(std::true_type(), stride);
  if (stride == sizeof(Bits)) return convert(std::false_type(), sizeof(Bits));
  convert(std::false_type(), stride);
}

inline void widen(Number number, const unsigned char* from, size_t stride, size_t n, double* to) noexcept {
  using Widen = void (*)(bool, const unsigned char*, size_t, size_t, double*) noexcept;
  constexpr Widen table[] = {
      widen_as<int8_t, uint8_t>,    widen_as<uint8_t, uint8_t>,   widen_as<int16_t, uint16_t>,
      widen_as<uint16_t, uint16_t>, widen_as<int32_t, uint32_t>,  widen_as<uint32_t, uint32_t>,
      widen_as<int64_t, uint64_t>,  widen_as<uint64_t, uint64_t>, widen_as<void, uint16_t>,
      widen_as<float, uint32_t>,    widen_as<double, uint64_t>,
  };
  table[static_cast<size_t>(number.kind)](number.swapped, from, stride, n, to);
}

constexpr uint64_t most_columns = 4096;  // of a matrix; wider ones are pictures, not recordings

constexpr size_t no_axis = SIZE_MAX;

// A column that may be the time of its group.
struct AxisCandidate {
  size_t column;  // whatever the caller counts
  uint64_t length;
  bool named;  // like a time axis; otherwise it serves only as the first numeric one of its length
};

// The time axes of one group, one for each length: the first column named like one, else the first numeric
// column if there is another of that length, else none (samples are counted).
class Axes {
 public:
  void offer(const AxisCandidate& candidate) {
    Choice& choice = by_length_[candidate.length];
    ++choice.count;
    if (candidate.named && choice.named == no_axis) choice.named = candidate.column;
    if (choice.first == no_axis) choice.first = candidate.column;
  }

  // A column that cannot be the time: text, or half of a complex number.
  void add_other(uint64_t length) { ++by_length_[length].count; }

  size_t named(uint64_t length) const {
    const auto found = by_length_.find(length);
    return found == by_length_.end() ? no_axis : found->second.named;
  }

  size_t of(uint64_t length) const {
    const auto found = by_length_.find(length);
    if (found == by_length_.end()) return no_axis;
    const Choice& choice = found->second;
    if (choice.named != no_axis) return choice.named;
    return choice.count > 1 ? choice.first : no_axis;
  }

 private:
  struct Choice {
    size_t named = no_axis;
    size_t first = no_axis;
    size_t count = 0;
  };
  std::map<uint64_t, Choice> by_length_;
};

// Throws when the two vectors of `samples` samples would need more than the budget and more than half of the
// machine's memory. So a file with wrong sizes fails before any allocation.
inline void check_size(uint64_t samples, std::string_view name) {
  const uint64_t most = std::max<uint64_t>(mirn3::mem::memory_bank, mirn3::machine::physical_memory() / 2);
  if (samples <= most / 16) return;
  throw mirn3::exc::error_t(fmt::format(
      "Variable '{:s}' claims {:d} samples, which need more memory than the {:d} MB that this machine "
      "can spare; the file is damaged, or must be cut into pieces (KVALO_MEMORY_BANK raises the limit)",
      name, samples, most >> 20));
}

}  // namespace mirn2::rd::samples
