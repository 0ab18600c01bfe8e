// Samples of charts, and looking charts up.
#include "view/model.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "view/pixels.h"

namespace kvalo_view {

Data::Data(const dto_chart_t& record, const std::shared_ptr<const Data>& before)
    : x_(record.x), y_(record.y), z_(record.z), size_(std::min(record.x.size(), record.y.size())) {
  const std::shared_ptr<const Data> head = head_of(before);
  const bool goes_on =
      head && head->x().data() == x().data() && head->y().data() == y().data() && head->size() <= size_;
  if (goes_on) before_ = head;
}

std::shared_ptr<const Data> Data::head_of(const std::shared_ptr<const Data>& data) {
  if (!data || data->is_ready()) return data;
  const std::lock_guard lock(data->guard_);
  return data->before_;
}

const Pyramid& Data::pyramid() const {
  std::call_once(built_, [&] {
    const std::shared_ptr<const Data> head = before_;
    pyramid_ = head ? Pyramid(x(), y(), head->pyramid_) : Pyramid(x(), y());
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    times_ = {nan, nan};
    if (pyramid_.ascends()) {
      if (size_ != 0) times_ = {x().front(), x().back()};
    } else if (const Box box = box_of(x(), x()); box.x.lo <= box.x.hi) {
      times_ = box.x;
    }
    ready_ = true;
    const std::lock_guard lock(guard_);
    before_.reset();
  });
  return pyramid_;
}

Range Data::times() const {
  pyramid();
  return times_;
}

const char* name_of(Kind kind) {
  static constexpr const char* names[] = {"line", "bool",    "cross",   "fft",    "bode", "xcorr",
                                          "hist", "heatmap", "spectro", "line3d", "mesh", "synoptic"};
  return names[static_cast<size_t>(kind)];
}

namespace {
template <typename Wanted>
std::shared_ptr<const Chart> first_chart(const State& state, const Wanted& wanted) {
  const auto found =
      std::find_if(state.charts.begin(), state.charts.end(), [&](const auto& c) { return wanted(*c); });
  return found == state.charts.end() ? nullptr : *found;
}
}  // namespace

std::shared_ptr<const Chart> State::chart(uint64_t id) const {
  return first_chart(*this, [id](const Chart& c) { return c.id == id; });
}

std::shared_ptr<const Chart> State::chart_of_key(uint32_t key) const {
  return first_chart(*this, [key](const Chart& c) { return c.key == key; });
}

}  // namespace kvalo_view
