// The table of field letters and the loops that read fields out of records.
#include "readers/ardupilot_fields.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace mirn2::rd::ardupilot {
namespace {

template <typename T>
T little_endian(const unsigned char* bytes) noexcept {
  T value;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(&value, bytes, sizeof value);
  } else {
    unsigned char turned[sizeof value];
    std::reverse_copy(bytes, bytes + sizeof value, turned);
    std::memcpy(&value, turned, sizeof value);
  }
  return value;
}

template <typename T>
void numbers(const unsigned char* field, std::span<const uint32_t> offsets, double scale,
             double* out) noexcept {
  for (const uint32_t offset : offsets) {
    *out++ = static_cast<double>(little_endian<T>(field + offset)) * scale;
  }
}

// Fixed-point fields: the hundredths are applied before the scale, as two roundings.
template <typename T>
void hundredths(const unsigned char* field, std::span<const uint32_t> offsets, double scale,
                double* out) noexcept {
  for (const uint32_t offset : offsets) {
    *out++ = static_cast<double>(little_endian<T>(field + offset)) * 0.01 * scale;
  }
}

void zeros(const unsigned char*, std::span<const uint32_t> offsets, double, double* out) noexcept {
  std::fill_n(out, offsets.size(), 0.0);
}

constexpr Letter letters[] = {
    {'b', 1, false, numbers<int8_t>},
    {'B', 1, false, numbers<uint8_t>},
    {'h', 2, false, numbers<int16_t>},
    {'H', 2, false, numbers<uint16_t>},
    {'i', 4, false, numbers<int32_t>},
    {'I', 4, false, numbers<uint32_t>},
    {'f', 4, false, numbers<float>},
    {'d', 8, false, numbers<double>},
    {'n', 4, true, zeros},
    {'N', 16, true, zeros},
    {'Z', 64, true, zeros},
    {'c', 2, false, hundredths<int16_t>},
    {'C', 2, false, hundredths<uint16_t>},
    {'e', 4, false, hundredths<int32_t>},
    {'E', 4, false, hundredths<uint32_t>},
    {'M', 1, false, numbers<uint8_t>},
    {'q', 8, false, numbers<int64_t>},
    {'Q', 8, false, numbers<uint64_t>},
    // Known only for their width, from here on.
    {'L', 4, false, numbers<int32_t>},
    {'a', 64, false, zeros},
};
constexpr Letter unknown = {'\0', 0, false, zeros};

constexpr bool offered_come_first() {
  for (size_t i = 0; i < std::size(letters); ++i) {
    const char letter = letters[i].letter;
    if (i < offered_letters.size() ? letter != offered_letters[i]
                                   : offered_letters.find(letter) != std::string_view::npos) {
      return false;
    }
  }
  return std::size(letters) >= offered_letters.size();
}
static_assert(offered_come_first(), "the table starts with exactly the offered letters, in their order");

constexpr std::array<uint8_t, 256> rows = [] {
  std::array<uint8_t, 256> table{};
  table.fill(std::size(letters));
  for (size_t i = 0; i < std::size(letters); ++i) {
    table[static_cast<unsigned char>(letters[i].letter)] = static_cast<uint8_t>(i);
  }
  return table;
}();

}  // namespace

const Letter& letter_of(char letter) noexcept {
  const uint8_t row = rows[static_cast<unsigned char>(letter)];
  return row < std::size(letters) ? letters[row] : unknown;
}

bool is_offered(char letter) noexcept {
  return letter != '\0' && offered_letters.find(letter) != std::string_view::npos;
}

}  // namespace mirn2::rd::ardupilot
