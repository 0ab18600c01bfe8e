// What a script has asked to be shown: pages, charts with their series, annotations, settings.
//
// Values, never changed once they are in a State: who holds one may read it on any thread for as long as it
// likes. Samples are shared with the script's series.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "kvalo/records.h"
#include "view/columns.h"
#include "view/pyramid.h"

namespace kvalo_view {

// The samples of a series and, from the first view on, their pyramid.
class Data {
 public:
  using Samples = mirn3::shared_vector<double>;

  // `before` is what the curve showed until now, or null: where it is the beginning of the same buffers, its
  // pyramid is gone on with.
  Data(const dto_chart_t& record, const std::shared_ptr<const Data>& before);

  std::span<const double> x() const { return {x_.data(), size_}; }
  std::span<const double> y() const { return {y_.data(), size_}; }
  std::span<const double> z() const { return {z_.data(), z_.size()}; }
  std::span<const double> mesh_x() const { return {x_.data(), x_.size()}; }
  std::span<const double> mesh_y() const { return {y_.data(), y_.size()}; }
  size_t size() const { return size_; }  // samples that have time and value
  std::array<const Samples*, 3> buffers() const { return {&x_, &y_, &z_}; }

  // Built on the first call; others wait for it.
  const Pyramid& pyramid() const;
  bool is_ready() const { return ready_; }

  // The least and the greatest time stamp, NaN without one; reads all stamps where they do not ascend.
  Range times() const;

 private:
  Samples x_, y_, z_;
  size_t size_;
  // The newest pyramid of this buffer: of these samples, or of what they go on from.
  static std::shared_ptr<const Data> head_of(const std::shared_ptr<const Data>& data);

  mutable std::once_flag built_;
  mutable std::atomic<bool> ready_{false};
  mutable Pyramid pyramid_;
  mutable Range times_{0, 0};
  mutable std::mutex guard_;                    // of before_
  mutable std::shared_ptr<const Data> before_;  // until the pyramid is built
};

using Color = std::array<int32_t, 3>;  // 0 to 255 each; -1: not set

enum class Kind : uint8_t {
  line,
  boolean,
  cross,
  fft,
  bode,
  xcorr,
  hist,
  heatmap,
  spectro,
  line3d,
  mesh,
  synoptic
};
const char* name_of(Kind kind);

struct Series {
  uint32_t key = 0;
  uint64_t id = 0;
  std::string name, full_name;
  bool is_right = false;
  mirn3::ilc::style_t style = mirn3::ilc::style_t::line;
  int32_t param = -1, param2 = -1, width = -1;
  double vmin = 1e100, vmax = 1e100;
  Color color{-1, -1, -1};
  uint32_t version = 1;  // grows when the same series is sent again
  std::shared_ptr<const Data> data;
};

struct Annotation {
  uint32_t type = 0;  // id of the message
  double x = 0, y = 0, width = 0, height = 0, diameter = 0;
  Color color{-1, -1, -1};
  std::string text;
};

struct Axis {
  std::optional<double> min, max, tick;
};

struct Chart {
  uint32_t key = 0;
  uint64_t id = 0;
  Kind kind = Kind::line;
  uint64_t page = 0;
  Axis left, right;
  char fit = '0';
  std::string xlabel;
  bool legend_visible = true, legend_full = false;
  double legend_x = 0, legend_y = 0;
  std::vector<std::shared_ptr<const Series>> series;
  std::vector<Annotation> objects;
};

struct Page {
  uint64_t id = 0;
  std::string name;
  int32_t cols = -1;
};

struct Notice {
  bool is_error = false;
  std::string text;
};

struct State {
  uint64_t version = 0;
  std::optional<bool> light, light_live;  // themes
  bool is_live = false;                   // a series was sent again
  int32_t tab = 1;
  std::string time_format = "auto";
  std::optional<Range> time_limits;
  std::optional<double> global_time;
  std::vector<Range> bookmarks;
  uint64_t page = 0;
  std::vector<Page> pages;
  std::vector<std::shared_ptr<const Chart>> charts;  // in the order of their creation
  std::vector<Annotation> objects;                   // on all charts
  std::vector<Notice> notices;                       // the newest ones
  uint64_t pinned = 0;                               // bytes of samples that charts keep in memory

  std::shared_ptr<const Chart> chart(uint64_t id) const;
  std::shared_ptr<const Chart> chart_of_key(uint32_t key) const;
};

}  // namespace kvalo_view
