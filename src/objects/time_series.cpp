// Loading, showing and unloading of series: what the rest of the module asks of a TimeSeries object.
#include "objects/time_series.h"

#include <cstring>

#include "kernels/array.h"
#include "objects/attribute_name.h"
#include "objects/detached.h"
#include "objects/frame.h"
#include "readers/reader.h"
#include "runtime/num_merge.h"
#include "runtime/progress.h"
#include "runtime/python_lock.h"
#include "runtime/tag.h"
#include "runtime/utc.h"

namespace mirn2 {

TimeSeriesObject* as_series(PyObject* object) noexcept {
  const bool is_series = object != nullptr && PyObject_TypeCheck(object, &TimeSeriesType);
  return is_series ? reinterpret_cast<TimeSeriesObject*>(object) : nullptr;
}

TimeSeriesObject* series_argument(PyObject* object) {
  TimeSeriesObject* series = as_series(object);
  if (series == nullptr) fail(PyExc_TypeError, "Argument must be a kvalo.TimeSeries object");
  return series;
}

TimeSeries* record_of(const TimeSeriesObject* series) noexcept {
  return series->source != nullptr ? series->source->get() : nullptr;
}

Column* axis_of(PyObject* axis) noexcept {
  const ArrayObject* array = as_array(axis);
  return array != nullptr ? array->column.get() : nullptr;
}

SeriesRegistry& registry() {
  if (series_registry == nullptr) fail(PyExc_RuntimeError, "kvalo has been shut down in this process");
  return *series_registry;
}

namespace {

bool is_set(const PyObject* axis) { return axis != nullptr && axis != Py_None; }

// Fills the record's vectors. The interpreter lock is released while the readers work; if another
// thread has loaded the record meanwhile, its samples stand.
void load_record(const std::shared_ptr<TimeSeries>& record) {
  if (record->readers.size() == 1) {
    // No copy: what a script does to its series shows in those made from it by id, and the other way.
    const auto* detached = dynamic_cast<const ReaderDetached*>(record->readers.front().get());
    if (detached != nullptr) return detached->show(*record);
  }
  const LoadPlan plan(*record);
  LoadedSamples loaded = without_gil([&] {
    const mirn3::progress::Line line("Loading " + record->full_name);
    LoadedSamples samples = plan.run();
    mirn3::tag::load();
    return samples;
  });
  if (record->is_loaded()) return;
  ColumnPtr x = make_column(std::move(loaded.x));
  record->y = make_column(std::move(loaded.y));
  record->x = std::move(x);
}

}  // namespace

void load_samples(TimeSeriesObject* series) {
  if (series->source == nullptr || is_set(series->xdata) || is_set(series->ydata)) return;
  const std::shared_ptr<TimeSeries> record = *series->source;
  const mirn3::utc::Timer timer("load", record->main_name);
  if ((series->flags & flag_loadable) == 0) fail(PyExc_Exception, "kvalo.TimeSeries object is not loadable");
  series->flags |= flag_load_started;
  record->last_load = mirn3::utc::now_stamp();
  if (!record->is_loaded()) load_record(record);
  // From here to the end the interpreter lock is held, so the samples cannot be dropped for room.
  Ref x = make_array(record->x);
  Ref y = make_array(record->y);
  Py_XSETREF(series->xdata, x.release());
  Py_XSETREF(series->ydata, y.release());
}

void load_series(TimeSeriesObject* series) {
  const Trace trace("load");
  const bool loads = series->source != nullptr && !is_set(series->xdata) && !is_set(series->ydata);
  load_samples(series);
  if (!loads) return;
  if (record_of(series)->x->empty()) fail(PyExc_Exception, "X-Axis data is empty");
  if (record_of(series)->y->empty()) fail(PyExc_Exception, "Y-Axis data is empty");
}

void ensure_loaded(TimeSeriesObject* series) {
  if (!is_set(series->xdata) && series->source != nullptr) load_series(series);
}

Ref show_record(uint64_t id, double tini, double tend) {
  return checked(PyObject_CallFunction(reinterpret_cast<PyObject*>(&TimeSeriesType), "Kdd",
                                       static_cast<unsigned long long>(id), tini, tend));
}

Ref object_of(const std::shared_ptr<TimeSeries>& record) {
  if (record->owner != nullptr) return Ref::share(reinterpret_cast<PyObject*>(record->owner));
  return show_record(record->id, record->tini, record->tend);
}

void set_child_attribute(PyObject** dict, const TimeSeries& series, PyObject* object) {
  if (*dict == nullptr) *dict = checked(PyDict_New()).release();
  const std::string name = attribute_name(series.main_name);
  const Ref key = checked(to_unicode(name));
  PyObject* displaced = PyDict_GetItemWithError(*dict, key.get());
  if (displaced == nullptr) {
    check_python();
  } else if (displaced != object) {
    const TimeSeriesObject* other = as_series(displaced);
    const std::string behind = other != nullptr ? name_of(other) : std::string();
    const Ref aside = checked(to_unicode(fmt::format("'{}' behind '{}'", behind, name)));
    if (PyDict_SetItem(*dict, aside.get(), displaced) < 0) throw python_error();
  }
  if (PyDict_SetItem(*dict, key.get(), object) < 0) throw python_error();
}

void set_script(TimeSeriesObject* series, const std::string& script) {
  // Expressions of expressions may double with every step.
  constexpr size_t longest = size_t{1} << 20;
  if (script.size() > longest) return;
  char* copy = strdup(script.c_str());
  if (copy == nullptr) throw std::bad_alloc();
  std::free(series->script);
  series->script = copy;
}

namespace {

// Whether the axis of a script object can be dropped with the record's column: it shows that column, and
// nobody else holds the Array or looks into it.
bool can_drop(PyObject* axis, const ColumnPtr& column) {
  if (axis == nullptr) return true;
  const ArrayObject* array = as_array(axis);
  return array != nullptr && array->column == column && Py_REFCNT(axis) == 1 && !column->is_viewed();
}

}  // namespace

bool unload(TimeSeries& record, std::vector<Ref>& dropped) {
  static const ColumnPtr nothing = make_column({});
  if (!record.can_unload()) return false;
  for (const TimeSeriesObject* object : record.shown_by) {
    if (!can_drop(object->xdata, record.x) || !can_drop(object->ydata, record.y)) return false;
  }
  for (TimeSeriesObject* object : record.shown_by) {
    for (PyObject** axis : {&object->xdata, &object->ydata}) {
      if (*axis == nullptr) continue;
      as_array(*axis)->column = nothing;  // the Array itself goes later
      dropped.push_back(Ref::steal(std::exchange(*axis, nullptr)));
    }
  }
  record.x.reset();
  record.y.reset();
  return true;
}

void forget_samples(TimeSeries& record) {
  if (!record.is_loaded()) return;
  if (record.x->is_modified() || record.y->is_modified()) {
    rd::warn(fmt::format("The samples of '{:s}' were changed by the script and stay as they are",
                         record.full_name));
    return;
  }
  record.x.reset();
  record.y.reset();
  for (TimeSeriesObject* object : record.shown_by) {
    Py_CLEAR(object->xdata);
    Py_CLEAR(object->ydata);
  }
}

void scale_axis(TimeSeries& record, AxisScale TimeSeries::*scale, ColumnPtr TimeSeries::*axis,
                AxisScale value) {
  const ColumnPtr column = record.*axis;
  const bool is_second = !(record.*scale).is_identity();
  if (column && !column->empty()) {
    // A reload applies only this last pair, so samples that carry an earlier one too must stay.
    using enum Column::Change;
    kernels::scale(column->write(is_second ? modifies : repeated_by_loading), value.gain, value.offset);
  }
  record.*scale = value;
}

std::string name_of(const TimeSeriesObject* series) {
  const TimeSeries* record = record_of(series);
  return record != nullptr && !record->main_name.empty() ? record->main_name : std::string(series->script);
}

Operand::Operand(TimeSeriesObject* series)
    : in_use_(series->source != nullptr ? *series->source : nullptr), name_(name_of(series)) {
  ensure_loaded(series);
  const Column* x = axis_of(series->xdata);
  const Column* y = axis_of(series->ydata);
  if (x == nullptr || y == nullptr) fail(PyExc_Exception, "kvalo.TimeSeries object is empty");
  if (x->size() != y->size()) {
    fail(PyExc_ValueError, "'{:s}' has {} times for {} values", name_, x->size(), y->size());
  }
  x_ = x->hold();
  y_ = y->hold();
}

bool Operand::has_ascending_time() const {
  if (x_.is_known_ascending()) return true;
  const bool ascends = without_gil([&] { return mirn3::num::is_strictly_ascending(x()); });
  if (ascends) x_.remember_ascending();
  return ascends;
}

Ref make_result(Samples x, Samples y) {
  Ref xdata = make_array(std::move(x));
  Ref ydata = make_array(std::move(y));
  Ref result = Ref::steal(PyObject_CallNoArgs(reinterpret_cast<PyObject*>(&TimeSeriesType)));
  if (!result) fail(PyExc_Exception, "Internal error while creating kvalo.TimeSeries");
  TimeSeriesObject* series = as_series(result.get());
  series->xdata = xdata.release();
  series->ydata = ydata.release();
  return result;
}

namespace {

ColumnPtr column_or_nothing(PyObject* axis) {
  const ArrayObject* array = as_array(axis);
  return array != nullptr ? array->column : make_column({});
}

}  // namespace

void ReaderDetached::show(TimeSeries& record) const {
  ColumnPtr x = column_or_nothing(object_ != nullptr ? object_->xdata : nullptr);
  record.y = column_or_nothing(object_ != nullptr ? object_->ydata : nullptr);
  record.x = std::move(x);
}

void ReaderDetached::load(rd::rto_t& request) {
  const mirn3::python::Lock lock;
  if (object_ == nullptr) return;
  if (const Column* x = axis_of(object_->xdata)) request.x = x->snapshot();
  if (const Column* y = axis_of(object_->ydata)) request.y = y->snapshot();
}

}  // namespace mirn2
