// Answers what a page or a picture asks about charts: tiles, values at a time, statistics of a range.
//
// Keeps what was computed for each chart until the chart's data change. For one thread at a time.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "view/derived.h"
#include "view/model.h"
#include "view/tile.h"

namespace kvalo_view {

constexpr size_t widest = 16384;  // columns of a view
constexpr size_t highest = 8192;  // rows

struct View {
  static constexpr double nan = std::numeric_limits<double>::quiet_NaN();

  uint32_t seq = 0;
  Range x{nan, nan};     // NaN: all
  Range y{nan, nan};     // NaN: all
  Range span{nan, nan};  // of time that data are computed from; NaN: all
  size_t width = 1600;   // 1 to widest
  size_t height = 900;   // 1 to highest
  bool follow = false;   // the range ends at the newest sample
  uint16_t flags = 0;    // TileFlag, for all tiles
};

// A sample; NaN where there is none.
struct Point {
  double x, y;
};

struct ValueAt {
  uint32_t series;
  Point held;  // the last one that is not later
  Point near;
};

struct Statistics {
  uint32_t series;
  size_t n = 0;
  size_t finite = 0;
  Point least{View::nan, View::nan}, greatest{View::nan, View::nan};
  double mean = View::nan, deviation = View::nan, rms = View::nan;
  Point first{View::nan, View::nan}, last{View::nan, View::nan};
};

class Views {
 public:
  std::vector<Tile> tiles(const Chart& chart, const View& view);
  std::vector<ValueAt> values(const Chart& chart, double at);
  std::vector<Statistics> statistics(const Chart& chart, Range times) const;

  // The x axis of a chart as far as it is known without computing anything.
  std::optional<Range> x_range(const Chart& chart) const;
  // Why a chart shows nothing; empty if it does.
  std::string error(const Chart& chart) const;
  // Grows whenever one of these two, or what is known of a series, may have changed.
  uint64_t changes() const { return changes_; }

  // Drops what was computed for charts that are gone.
  void forget(const State& state);

 private:
  const Derived& derived(const Chart& chart, Range span);

  std::map<uint32_t, std::unique_ptr<Derived>> derived_;  // by the chart's key
  uint64_t changes_ = 0;
};

bool has_time_axis(Kind kind);
bool has_curves(Kind kind);  // and so overviews

}  // namespace kvalo_view
