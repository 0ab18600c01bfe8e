// A tile: what is drawn of one curve in one view. docs/view-protocol.md says what every field means.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <string>

namespace kvalo_view {

static_assert(std::endian::native == std::endian::little, "tiles are sent as they lie in memory");

enum class Form : uint16_t {
  columns = 1,
  hold_columns = 2,
  samples = 3,
  mask = 4,
  pixels = 5,
  grid = 6,
  bars = 7,
  path3 = 8,
  mesh = 9,
};

enum TileFlag : uint16_t {
  tile_overview = 1,
  tile_push = 2,
  tile_hold = 4,
  tile_dots = 8,
  tile_decimated = 16,
  tile_nothing = 32,
  tile_descending = 64,
};

struct TileHeader {
  static constexpr double nan = std::numeric_limits<double>::quiet_NaN();

  Form form = Form::samples;
  uint16_t flags = 0;
  uint32_t seq = 0;
  uint32_t chart = 0;
  uint32_t series = 0;
  double x0 = nan;
  double x1 = nan;
  double y0 = 0;
  double y1 = nan;
  uint32_t n = 0;
  uint32_t m = 1;
  double before_x = nan;
  double before_y = nan;
  double after_x = nan;
  double after_y = nan;
  uint32_t ratio = 1;
  uint32_t version = 0;
};
static_assert(sizeof(TileHeader) == 96);

struct Tile {
  TileHeader header;
  std::string data;

  template <typename T>
  void append(std::span<const T> values) {
    data.append(reinterpret_cast<const char*>(values.data()), values.size_bytes());
  }
  template <typename T>
  void append(const T& value) {
    data.append(reinterpret_cast<const char*>(&value), sizeof value);
  }

  // As it goes over the wire.
  std::string bytes() const {
    std::string result(sizeof header, '\0');
    std::memcpy(result.data(), &header, sizeof header);
    return result + data;
  }
};

}  // namespace kvalo_view
