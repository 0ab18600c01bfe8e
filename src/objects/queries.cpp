// Methods of TimeSeries that answer questions about the samples, or cut and change them.
#include "objects/queries.h"

#include <utility>

#include "kernels/array.h"
#include "kernels/queries.h"
#include "objects/frame.h"
#include "objects/time_series.h"
#include "objects/unavailable.h"
#include "readers/reader.h"
#include "runtime/log.h"
#include "runtime/str.h"

namespace mirn2::query {

namespace {

using kernels::Relation;

constexpr const char* no_data = "No data";
constexpr const char* numeric_argument = "Argument must be a numeric value";

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

double number_item(PyObject* args, Py_ssize_t i) {
  return number_argument(PyTuple_GET_ITEM(args, i), numeric_argument);
}

// What reads the samples without loading them says how to get them.
void warn_if_not_loaded(PyObject* object, const Held& held) {
  const TimeSeriesObject* self = self_of(object);
  const bool loadable = self->source != nullptr && (self->flags & flag_loadable) != 0;
  if (!loadable || !held.x().empty() || !held.y().empty()) return;
  rd::warn(fmt::format("'{:s}' has no samples yet: call load() first", name_of(self)));
}

// ---- values ----

template <Name name, double kernels::Extremes::*which>
PyObject* extreme(PyObject* self) {
  return guard(PyExc_ValueError, [&] {
    refuse_online(name.text);
    const Held held(self, Loading::on_demand);
    if (held.y().empty()) fail(PyExc_ValueError, "{:s}", no_data);
    return PyFloat_FromDouble(without_gil([&] { return kernels::extremes(held.y()).*which; }));
  });
}

}  // namespace

PyObject* max(PyObject* self, PyObject*) { return extreme<"max", &kernels::Extremes::hi>(self); }
PyObject* min(PyObject* self, PyObject*) { return extreme<"min", &kernels::Extremes::lo>(self); }

PyObject* avg(PyObject* self, PyObject*) {
  return guard(PyExc_ValueError, [&] {
    refuse_online("avg");
    const Held held(self, Loading::on_demand);
    if (!held.has_x() || !held.has_y()) fail(PyExc_ValueError, "{:s}", no_data);
    if (held.x().size() < held.y().size()) {
      fail(PyExc_ValueError, "There are {} times for {} values", held.x().size(), held.y().size());
    }
    return PyFloat_FromDouble(without_gil([&] { return kernels::zero_order_mean(held.x(), held.y()); }));
  });
}

PyObject* sum(PyObject* self, PyObject*) {
  return guard(PyExc_ValueError, [&] {
    refuse_online("sum");
    const Held held(self, Loading::on_demand);
    if (!held.has_y()) fail(PyExc_ValueError, "{:s}", no_data);
    return PyFloat_FromDouble(without_gil([&] { return mirn2::kernels::sum(held.y()); }));
  });
}

// ---- times ----

namespace {

// A wrong number of arguments and axes of different length give None, without an error.
template <typename Kernel>
PyObject* total_time(PyObject* self, PyObject* args, const char* name, Py_ssize_t limits, Kernel kernel) {
  return guard(PyExc_ValueError, [&]() -> PyObject* {
    refuse_online(name);
    if (PyTuple_GET_SIZE(args) != limits) Py_RETURN_NONE;
    const double lo = number_item(args, 0);
    const double hi = number_item(args, limits - 1);
    const Held held(self, Loading::none);
    warn_if_not_loaded(self, held);
    if (held.x().size() != held.y().size()) Py_RETURN_NONE;
    return PyFloat_FromDouble(without_gil([&] { return kernel(held.x(), held.y(), lo, hi); }));
  });
}

template <Relation relation>
PyObject* time_impl(PyObject* self, PyObject* args) {
  return total_time(self, args, "time_impl", 1, [](auto x, auto y, double value, double) {
    return kernels::time_where(x, y, relation, value);
  });
}

}  // namespace

PyObject* time_bt(PyObject* self, PyObject* args) {
  return total_time(self, args, "time_bt", 2, kernels::time_between);
}
PyObject* time_eq(PyObject* self, PyObject* args) { return time_impl<Relation::equal>(self, args); }
PyObject* time_gt(PyObject* self, PyObject* args) { return time_impl<Relation::greater>(self, args); }
PyObject* time_lt(PyObject* self, PyObject* args) { return time_impl<Relation::less>(self, args); }
PyObject* time_ne(PyObject* self, PyObject* args) { return time_impl<Relation::not_equal>(self, args); }

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

PyObject* index(PyObject* self, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    refuse_online("index");
    static const char* names[] = {"", "op", nullptr};
    double value = 0.0;
    const char* op = "eq";
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "d|s", const_cast<char**>(names), &value, &op)) {
      throw python_error();
    }
    const Relation relation = relation_named(op);
    const Held held(self, Loading::on_demand);
    if (!held.has_y()) fail(PyExc_ValueError, "{:s}", no_data);
    const size_t found = without_gil([&] { return kernels::find_first(held.y(), relation, value); });
    if (found == held.y().size()) fail(PyExc_ValueError, "Could not find sample that match the criteria");
    return PyLong_FromSize_t(found);
  });
}

PyObject* pattern(PyObject* self, PyObject* args) {
  return guard(PyExc_Exception, [&] {
    const Trace trace("pattern1");
    constexpr long nothing_detected = 1;
    refuse_online("pattern");
    if (PyTuple_GET_SIZE(args) != 2) {
      rd::warn("Invalid argument count");
      return PyLong_FromLong(nothing_detected);
    }
    const double t0 = number_item(args, 0);
    const double t1 = number_item(args, 1);
    const Held held(self, Loading::on_demand);
    if (!held.has_x()) fail(PyExc_Exception, "kvalo.TimeSeries object is empty");
    if (held.x().size() != held.y().size()) {
      constexpr int fatal = 4;
      mirn3::log::write(
          fatal, fmt::format("Inconsistent sizes: xsize {}, ysize {}", held.x().size(), held.y().size()));
      return PyLong_FromLong(nothing_detected);
    }
    const Trace detector("pattern2");
    const uint64_t code = without_gil([&] { return kernels::pattern_code(held.x(), held.y(), t0, t1); });
    uint64_t& flags = self_of(self)->flags;
    flags = (flags & ~pattern_mask) | code;
    return PyLong_FromUnsignedLong(static_cast<uint32_t>(flags));
  });
}

// ---- cutting and sorting ----

PyObject* slice(PyObject* self, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    refuse_online("slice");
    static const char* names[] = {"tini", "tend", nullptr};
    double tini = 0.0;
    double tend = 0.0;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "dd", const_cast<char**>(names), &tini, &tend)) {
      throw python_error();
    }
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
    return make_result(std::move(x), std::move(y)).release();
  });
}

PyObject* sort(PyObject* self, PyObject*) {
  return guard(PyExc_ValueError, [&]() -> PyObject* {
    refuse_online("sort");
    const Operand operand(self_of(self));
    const ColumnPtr x_column = as_array(self_of(self)->xdata)->column;
    const ColumnPtr y_column = as_array(self_of(self)->ydata)->column;
    Samples x;
    Samples y;
    if (without_gil([&] { return kernels::is_sorted_by_time(operand.x()); })) Py_RETURN_NONE;
    x.resize_for_overwrite(operand.size());
    y.resize_for_overwrite(operand.size());
    without_gil([&] { kernels::sort_by_time(operand.x(), operand.y(), x.span(), y.span()); });
    // Everything that shows the series sees it sorted; loading again would bring back the old order.
    x_column->replace(std::move(x), Column::Change::modifies);
    y_column->replace(std::move(y), Column::Change::modifies);
    Py_RETURN_NONE;
  });
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

template <const Axis& axis, Name name>
PyObject* apply_gain(PyObject* self, PyObject* args) {
  return guard(PyExc_ValueError, [&]() -> PyObject* {
    refuse_online(name.text);
    require_count(args, 2, name.text);
    const double gain = number_item(args, 0);
    const double offset = number_item(args, 1);
    if (TimeSeries* record = record_of(self_of(self))) {
      scale_axis(*record, axis.scale, axis.column, {gain, offset});
    } else if (ArrayObject* array = as_array(self_of(self)->*axis.array)) {
      mirn2::kernels::scale(array->column->write(), gain, offset);
    }
    Py_RETURN_NONE;
  });
}

}  // namespace

PyObject* axpb(PyObject* self, PyObject* args) { return apply_gain<x_axis, "axpb">(self, args); }
PyObject* aypb(PyObject* self, PyObject* args) { return apply_gain<y_axis, "aypb">(self, args); }

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

PyObject* inspect(PyObject* self, PyObject*) {
  return guard(PyExc_Exception, [&]() -> PyObject* {
    refuse_online("inspect");
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
    Py_RETURN_NONE;
  });
}

}  // namespace mirn2::query
