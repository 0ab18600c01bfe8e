// Methods of TimeSeries that answer questions about the samples, or cut and change them.
#include "objects/queries.h"

#include <utility>

#include "kernels/array.h"
#include "kernels/queries.h"
#include "objects/time_series.h"
#include "readers/reader.h"
#include "runtime/log.h"
#include "runtime/str.h"

namespace mirn2::query {

namespace {

using kernels::Relation;

constexpr const char* no_data = "No data";

TimeSeriesObject* self_of(PyObject* self) { return reinterpret_cast<TimeSeriesObject*>(self); }

enum class Loading { on_demand, none };

// Shares of what a series holds, until the question is answered; an axis may be missing.
class Held {
 public:
  Held(PyObject* object, Loading loading)
      : in_use_(self_of(object)->source != nullptr ? *self_of(object)->source : nullptr) {
    if (loading == Loading::on_demand) ensure_loaded(self_of(object));
    take(self_of(object)->xdata, has_x_, x_);
    take(self_of(object)->ydata, has_y_, y_);
  }

  bool has_x() const noexcept { return has_x_; }
  bool has_y() const noexcept { return has_y_; }
  std::span<const double> x() const noexcept { return x_.span(); }
  std::span<const double> y() const noexcept { return y_.span(); }

 private:
  static void take(PyObject* axis, bool& has, Samples& samples) {
    const Column* held = axis_of(axis);
    has = held != nullptr;
    if (has) samples = held->hold();
  }

  InUse in_use_;
  bool has_x_ = false;
  bool has_y_ = false;
  Samples x_;
  Samples y_;
};

double numeric(PyObject* value) { return number_argument(value, "Argument must be a numeric value"); }

// What reads the samples without loading them says how to get them.
void warn_if_not_loaded(PyObject* object, const Held& held) {
  const TimeSeriesObject* self = self_of(object);
  const bool loadable = self->source != nullptr && (self->flags & flag_loadable) != 0;
  if (!loadable || !held.x().empty() || !held.y().empty()) return;
  rd::warn(fmt::format("'{:s}' has no samples yet: call load() first", name_of(self)));
}

// ---- values ----

double extreme(PyObject* self, double kernels::Extremes::*which) {
  const Held held(self, Loading::on_demand);
  if (held.y().empty()) fail(PyExc_ValueError, "{:s}", no_data);
  return without_gil([&] { return kernels::extremes(held.y()).*which; });
}

}  // namespace

double max(PyObject* self) { return extreme(self, &kernels::Extremes::hi); }
double min(PyObject* self) { return extreme(self, &kernels::Extremes::lo); }

double avg(PyObject* self) {
  const Held held(self, Loading::on_demand);
  if (!held.has_x() || !held.has_y()) fail(PyExc_ValueError, "{:s}", no_data);
  if (held.x().size() < held.y().size()) {
    fail(PyExc_ValueError, "There are {} times for {} values", held.x().size(), held.y().size());
  }
  return without_gil([&] { return kernels::zero_order_mean(held.x(), held.y()); });
}

double sum(PyObject* self) {
  const Held held(self, Loading::on_demand);
  if (!held.has_y()) fail(PyExc_ValueError, "{:s}", no_data);
  return without_gil([&] { return mirn2::kernels::sum(held.y()); });
}

// ---- times ----

namespace {

// A wrong number of arguments and axes of different length give None, without an error.
template <typename Kernel>
PyObject* total_time(PyObject* self, Items limits, size_t count, Kernel kernel) {
  if (limits.size() != count) Py_RETURN_NONE;
  const double lo = numeric(limits.front());
  const double hi = numeric(limits.back());
  const Held held(self, Loading::none);
  warn_if_not_loaded(self, held);
  if (held.x().size() != held.y().size()) Py_RETURN_NONE;
  return PyFloat_FromDouble(without_gil([&] { return kernel(held.x(), held.y(), lo, hi); }));
}

PyObject* time_impl(PyObject* self, Items value, Relation relation) {
  return total_time(self, value, 1, [relation](auto x, auto y, double limit, double) {
    return kernels::time_where(x, y, relation, limit);
  });
}

}  // namespace

PyObject* time_bt(PyObject* self, Items limits) { return total_time(self, limits, 2, kernels::time_between); }
PyObject* time_eq(PyObject* self, Items value) { return time_impl(self, value, Relation::equal); }
PyObject* time_gt(PyObject* self, Items value) { return time_impl(self, value, Relation::greater); }
PyObject* time_lt(PyObject* self, Items value) { return time_impl(self, value, Relation::less); }
PyObject* time_ne(PyObject* self, Items value) { return time_impl(self, value, Relation::not_equal); }

// ---- search ----

namespace {

Relation relation_named(std::string_view name) {
  static constexpr std::pair<std::string_view, Relation> relations[] = {
      {"lt", Relation::less},    {"le", Relation::less_equal},    {"ne", Relation::not_equal},
      {"gt", Relation::greater}, {"ge", Relation::greater_equal},
  };
  const std::string lower = mirn3::str::to_lower(name);
  for (const auto& [known, relation] : relations) {
    if (known == lower) return relation;
  }
  return Relation::equal;
}

}  // namespace

uint64_t index(PyObject* self, double value, const char* op) {
  const Relation relation = relation_named(op);
  const Held held(self, Loading::on_demand);
  if (!held.has_y()) fail(PyExc_ValueError, "{:s}", no_data);
  const size_t found = without_gil([&] { return kernels::find_first(held.y(), relation, value); });
  if (found == held.y().size()) fail(PyExc_ValueError, "Could not find sample that match the criteria");
  return found;
}

uint64_t pattern(PyObject* self, Items times) {
  constexpr uint64_t nothing_detected = 1;
  if (times.size() != 2) {
    rd::warn("Invalid argument count");
    return nothing_detected;
  }
  const double t0 = numeric(times[0]);
  const double t1 = numeric(times[1]);
  const Held held(self, Loading::on_demand);
  if (!held.has_x()) fail(PyExc_Exception, "kvalo.TimeSeries object is empty");
  if (held.x().size() != held.y().size()) {
    constexpr int fatal = 4;
    mirn3::log::write(
        fatal, fmt::format("Inconsistent sizes: xsize {}, ysize {}", held.x().size(), held.y().size()));
    return nothing_detected;
  }
  const Trace detector("pattern2");
  const uint64_t code = without_gil([&] { return kernels::pattern_code(held.x(), held.y(), t0, t1); });
  uint64_t& flags = self_of(self)->flags;
  flags = (flags & ~pattern_mask) | code;
  return static_cast<uint32_t>(flags);
}

// ---- cutting and sorting ----

Ref slice(PyObject* self, double tini, double tend) {
  const Operand operand(self_of(self));
  if (operand.size() == 0) fail(PyExc_ValueError, "{:s}", no_data);
  const kernels::Slice range = kernels::slice(operand.x(), tini, tend);
  if (range.first > range.last) fail(PyExc_ValueError, "Invalid time limits");
  const size_t count = range.last - range.first + 1;
  Samples x;
  Samples y;
  x.resize_for_overwrite(count);
  y.resize_for_overwrite(count);
  without_gil([&] {
    std::ranges::copy(operand.x().subspan(range.first, count), x.data());
    std::ranges::copy(operand.y().subspan(range.first, count), y.data());
  });
  return make_result(std::move(x), std::move(y));
}

void sort(PyObject* self) {
  const Operand operand(self_of(self));
  const ColumnPtr x_column = as_array(self_of(self)->xdata)->column;
  const ColumnPtr y_column = as_array(self_of(self)->ydata)->column;
  Samples x;
  Samples y;
  if (without_gil([&] { return kernels::is_sorted_by_time(operand.x()); })) return;
  x.resize_for_overwrite(operand.size());
  y.resize_for_overwrite(operand.size());
  without_gil([&] { kernels::sort_by_time(operand.x(), operand.y(), x.span(), y.span()); });
  // Everything that shows the series sees it sorted; loading again would bring back the old order.
  x_column->replace(std::move(x), Column::Change::modifies);
  y_column->replace(std::move(y), Column::Change::modifies);
}

// ---- gain and offset ----

namespace {

struct Axis {
  AxisScale TimeSeries::*scale;
  ColumnPtr TimeSeries::*column;
  PyObject* TimeSeriesObject::*array;
};
constexpr Axis x_axis{&TimeSeries::x_scale, &TimeSeries::x, &TimeSeriesObject::xdata};
constexpr Axis y_axis{&TimeSeries::y_scale, &TimeSeries::y, &TimeSeriesObject::ydata};

void apply_gain(PyObject* self, const Axis& axis, PyObject* gain_argument, PyObject* offset_argument) {
  const double gain = numeric(gain_argument);
  const double offset = numeric(offset_argument);
  if (TimeSeries* record = record_of(self_of(self))) {
    scale_axis(*record, axis.scale, axis.column, {gain, offset});
  } else if (ArrayObject* array = as_array(self_of(self)->*axis.array)) {
    mirn2::kernels::scale(array->column->write(), gain, offset);
  }
}

}  // namespace

void axpb(PyObject* self, PyObject* gain, PyObject* offset) { apply_gain(self, x_axis, gain, offset); }
void aypb(PyObject* self, PyObject* gain, PyObject* offset) { apply_gain(self, y_axis, gain, offset); }

// ---- facts for people ----

namespace {

void tell_axis(const char* axis, bool exists, std::span<const double> values, bool tell_order) {
  if (!exists) {
    rd::warn(fmt::format("No data for the {:s}", axis));
    return;
  }
  const auto [facts, range] =
      without_gil([&] { return std::pair(kernels::axis_facts(values), kernels::extremes(values)); });
  const size_t n = values.size();
  if (tell_order) {
    rd::warn(
        fmt::format("X-axis values are {:s}strictly increasing", facts.strictly_increasing ? "" : "not "));
  }
  rd::warn(fmt::format("{:d} out of {:d} {:s} values are inf", facts.infinite, n, axis));
  rd::warn(fmt::format("{:d} out of {:d} {:s} values are NaN", facts.nan, n, axis));
  if (n == 0) return;
  rd::warn(fmt::format("Minimum value in {:s} is {}", axis, range.lo));
  rd::warn(fmt::format("Maximum value in {:s} is {}", axis, range.hi));
}

}  // namespace

void inspect(PyObject* self) {
  const Held held(self, Loading::none);
  if (const TimeSeries* record = record_of(self_of(self))) {
    rd::warn("TimeSeries was created from file");
    rd::warn(fmt::format("Full name is {:s}", record->full_name));
    rd::warn(fmt::format("Main name is {:s}", record->main_name));
  } else {
    rd::warn("TimeSeries was not created from file");
  }
  tell_axis("x-axis", held.has_x(), held.x(), true);
  tell_axis("y-axis", held.has_y(), held.y(), false);
  warn_if_not_loaded(self, held);
}

}  // namespace mirn2::query
