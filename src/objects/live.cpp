// Appends what a live source delivers to its series.
#include "objects/live.h"

#include <algorithm>
#include <cstring>

#include "kernels/array.h"
#include "objects/array.h"
#include "objects/time_series.h"

namespace mirn2 {

namespace {

// The last `kept` samples of the axis, and the new ones after them.
Samples extended(const Samples& axis, uint64_t kept, const Samples& news, const AxisScale& scale) {
  const uint64_t dropped = axis.size() - kept;
  const uint64_t total = kept + news.size();
  Samples result;
  if (axis.capacity() >= dropped + total && !axis.is_viewed()) {
    // Nobody sees past the end yet: for other holders of the buffer nothing changes.
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

// Lets an object's axis show the record's new column. An Array that shows something else now, because a
// script has put it there, is replaced.
void show(PyObject*& axis, const ColumnPtr& before, const ColumnPtr& now, std::vector<Ref>& dropped) {
  ArrayObject* array = as_array(axis);
  if (array != nullptr && (array->column == before || array->column == now)) {
    array->column = now;
  } else {
    dropped.push_back(Ref::steal(std::exchange(axis, make_array(now).release())));
  }
}

}  // namespace

void receive(TimeSeries& record, const LoadedSamples& delivered, uint64_t window, std::vector<Ref>& dropped) {
  const ColumnPtr old_x = record.x ? record.x : make_column({});
  const ColumnPtr old_y = record.y ? record.y : make_column({});
  const uint64_t held = std::min(old_x->size(), old_y->size());
  const uint64_t most = std::max(window, delivered.x.size());
  const uint64_t kept = std::min(held, most - delivered.x.size());
  ColumnPtr x = old_x;
  ColumnPtr y = old_y;
  if (kept != held || !delivered.x.empty()) {
    // Copies that a script has made of the Arrays keep the former columns, and the samples they have.
    x = make_column(extended(old_x->hold(), kept, delivered.x, record.x_scale));
    y = make_column(extended(old_y->hold(), kept, delivered.y, record.y_scale));
  }
  record.x = std::move(x);
  record.y = std::move(y);
  for (TimeSeriesObject* object : record.shown_by) {
    show(object->xdata, old_x, record.x, dropped);
    show(object->ydata, old_y, record.y, dropped);
  }
}

}  // namespace mirn2
