// Appends what a live source delivers to its series.
#include "objects/live.h"

#include <algorithm>
#include <cstring>

#include "kernels/array.h"
#include "objects/array.h"
#include "objects/lending.h"
#include "objects/time_series.h"

namespace mirn2 {

namespace {

// The last `kept` samples of the axis and the new ones behind.
Samples extended(const Samples& axis, uint64_t kept, const Samples& news, const AxisScale& scale) {
  const uint64_t dropped = axis.size() - kept;
  const uint64_t total = kept + news.size();
  Samples result;
  if (axis.capacity() >= dropped + total && !axis.is_watched()) {
    // What lies behind the end is nobody's yet: other holders of the buffer see nothing change.
    result = axis;
    result.remove_prefix(dropped);
    result.resize_for_overwrite(total);
  } else {
    result.reserve(2 * total);
    result.resize_for_overwrite(total);
    if (kept != 0) std::memcpy(result.data(), axis.data() + dropped, kept * sizeof(double));
  }
  const std::span<double> appended = result.span().subspan(kept);
  if (!news.empty()) std::memcpy(appended.data(), news.data(), news.size() * sizeof(double));
  if (!scale.is_identity()) kernels::scale(appended, scale.gain, scale.offset);
  return result;
}

// Lets an object's axis show the record's new samples. An Array that shows something else now, because a
// script has put it there, is replaced.
void show(PyObject*& axis, const Samples& before, const Samples& now, std::vector<Ref>& dropped) {
  ArrayObject* array = as_array(axis);
  const bool shows_record = array != nullptr && !array->borrows &&
                            (array->data.data() == before.data() || array->data.data() == now.data());
  if (shows_record) {
    array->data = now;
  } else {
    dropped.push_back(Ref::steal(std::exchange(axis, make_array(now).release())));
  }
}

}  // namespace

void receive(TimeSeries& record, const LoadedSamples& delivered, uint64_t window, std::vector<Ref>& dropped) {
  const uint64_t held = std::min(record.x.size(), record.y.size());
  const uint64_t most = std::max(window, delivered.x.size());
  const uint64_t kept = std::min(held, most - delivered.x.size());
  const Samples old_x = record.x;
  const Samples old_y = record.y;
  if (kept != held || !delivered.x.empty()) {
    prepare_write(record.x);  // results that borrow the buffer
    prepare_write(record.y);
    Samples x = extended(record.x, kept, delivered.x, record.x_scale);
    Samples y = extended(record.y, kept, delivered.y, record.y_scale);
    record.x = std::move(x);
    record.y = std::move(y);
  }
  for (TimeSeriesObject* object : record.shown_by) {
    show(object->xdata, old_x, record.x, dropped);
    show(object->ydata, old_y, record.y, dropped);
  }
}

}  // namespace mirn2
