// The Python type TimeSeries: life and death, construction, element access, methods, tables.
#include <Python.h>
#include <structmember.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "kernels/sampling.h"
#include "objects/detached.h"
#include "objects/queries.h"
#include "objects/series_operators.h"
#include "objects/time_series.h"
#include "runtime/num.h"
#include "runtime/rtd.h"
#include "runtime/str.h"
#include "runtime/tag.h"

namespace mirn2 {

namespace {

TimeSeriesObject* self_of(PyObject* self) { return reinterpret_cast<TimeSeriesObject*>(self); }

constexpr size_t random_name_length = 8;
std::atomic<uint64_t> created_series = 0;

// ---- life and death ----

PyObject* series_new(PyTypeObject* type, PyObject*, PyObject*) {
  return guard(PyExc_Exception, [&] {
    Ref object = checked(type->tp_alloc(type, 0));
    TimeSeriesObject* self = self_of(object.get());
    self->id64 = mirn3::num::create_id();
    self->flags = flag_loadable | pattern_varying;
    set_script(self, fmt::format("ts{:05d}", ++created_series));
    return object.release();
  });
}

// The object ceases to show the record registered under its id; the last one takes the entry with it.
void leave_registry(TimeSeriesObject* self) noexcept {
  if (series_registry == nullptr) return;
  const std::shared_ptr<TimeSeries> record = series_registry->find_by_id(self->id64);
  if (!record || std::ranges::find(record->shown_by, self) == record->shown_by.end()) return;
  for (const auto& reader : record->readers) {
    if (auto* detached = dynamic_cast<ReaderDetached*>(reader.get())) detached->cut(self);
  }
  if (record->detach(self)) series_registry->drop(self->id64);
}

void leave_record(TimeSeriesObject* self) noexcept {
  leave_registry(self);
  if (TimeSeries* record = record_of(self)) record->detach(self);
  delete std::exchange(self->source, nullptr);
}

int series_traverse(PyObject* object, visitproc visit, void* arg) {
  const TimeSeriesObject* self = self_of(object);
  Py_VISIT(self->dict);
  Py_VISIT(self->xdata);
  Py_VISIT(self->ydata);
  return 0;
}

int series_clear(PyObject* object) {
  TimeSeriesObject* self = self_of(object);
  Py_CLEAR(self->dict);
  Py_CLEAR(self->xdata);
  Py_CLEAR(self->ydata);
  return 0;
}

void series_dealloc(PyObject* object) {
  const Trace trace("tp_dealloc");
  PyObject_GC_UnTrack(object);
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  leave_record(self_of(object));
  series_clear(object);
  std::free(self_of(object)->script);
  Py_TYPE(object)->tp_free(object);
  PyErr_Restore(type, value, traceback);
}

// ---- construction ----

// Children of the record become attributes.
void post_init(TimeSeriesObject* self, double tini, double tend) {
  const Trace trace("tp_init_post");
  if (self->source != nullptr) {
    TimeSeries& record = **self->source;
    record.attach(self);
    record.tini = tini;
    record.tend = tend;
  }
  const std::shared_ptr<TimeSeries> record = registry().find_by_id(self->id64);
  if (!record) return;
  const auto children = record->children;  // showing a child may run scripts that change the list
  for (const auto& weak : children) {
    const std::shared_ptr<TimeSeries> child = weak.lock();
    if (!child) continue;
    const Ref shown = show_record(child->id, tini, tend);
    self->flags |= flag_has_children;
    set_child_attribute(&self->dict, *child, shown.get());
  }
}

void register_as(TimeSeriesObject* self, std::string_view name) {
  self->id64 = registry().add_detached(name, self);
}

void init_from_one(TimeSeriesObject* self, PyObject* argument) {
  if (PyUnicode_Check(argument)) {
    register_as(self, text_argument(argument));
    post_init(self, earliest_time, latest_time);
  } else if (const TimeSeriesObject* other = as_series(argument); other != nullptr && other != self) {
    self->source = other->source != nullptr ? new std::shared_ptr<TimeSeries>(*other->source) : nullptr;
    self->flags = other->flags;
    Py_XSETREF(self->xdata, Ref::share(other->xdata).release());
    Py_XSETREF(self->ydata, Ref::share(other->ydata).release());
  }
}

void init_from_sequences(TimeSeriesObject* self, PyObject* x, PyObject* y) {
  const bool lists = PyList_Check(x) && PyList_Check(y);
  const bool tuples = PyTuple_Check(x) && PyTuple_Check(y);
  if (!lists && !tuples) fail(PyExc_TypeError, "Constructor has invalid argument type");
  if (PySequence_Fast_GET_SIZE(x) != PySequence_Fast_GET_SIZE(y)) {
    fail(PyExc_ValueError, "Both {:s} must have the same size", lists ? "lists" : "tuples");
  }
  Ref xdata = make_array(samples_from_sequence(x));
  Ref ydata = make_array(samples_from_sequence(y));
  if (axis_of(xdata.get())->size() != axis_of(ydata.get())->size()) {
    fail(PyExc_ValueError, "A sequence changed its size while it was read");
  }
  register_as(self, mirn3::str::random(random_name_length));
  Py_XSETREF(self->xdata, xdata.release());
  Py_XSETREF(self->ydata, ydata.release());
}

void init_from_id(TimeSeriesObject* self, PyObject* id, PyObject* tini, PyObject* tend) {
  if (!PyLong_Check(id)) return;
  self->flags |= flag_created_by_id;
  const unsigned long long value = PyLong_AsUnsignedLongLong(id);
  std::shared_ptr<TimeSeries> record;
  if (PyErr_Occurred() != nullptr) {
    PyErr_Clear();  // negative or beyond 64 bits: no id at all
  } else {
    self->id64 = value;
    record = registry().find_by_id(value);
  }
  if (!record) fail(PyExc_ValueError, "Invalid id");
  self->source = new std::shared_ptr<TimeSeries>(std::move(record));
  const double from = PyFloat_AsDouble(tini);
  if (from == -1.0) check_python();
  const double to = PyFloat_AsDouble(tend);
  if (to == -1.0) check_python();
  post_init(self, from, to);
}

int series_init(PyObject* object, PyObject* args, PyObject*) {
  return guard(
      PyExc_ValueError,
      [&] {
        const Trace trace("tp_init");
        TimeSeriesObject* self = self_of(object);
        leave_record(self);  // a second __init__ starts over
        PyObject* const* items = &PyTuple_GET_ITEM(args, 0);
        switch (PyTuple_GET_SIZE(args)) {
          case 0:
            register_as(self, mirn3::str::random(random_name_length));
            break;
          case 1:
            init_from_one(self, items[0]);
            break;
          case 2:
            init_from_sequences(self, items[0], items[1]);
            break;
          case 3:
            init_from_id(self, items[0], items[1], items[2]);
            break;
          default:
            fail(PyExc_ValueError, "Constructor does not take more than three arguments");
        }
        return 0;
      },
      -1);
}

PyObject* series_repr(PyObject* object) {
  return guard(PyExc_Exception, [&] {
    const Column* x = axis_of(self_of(object)->xdata);
    const Column* y = axis_of(self_of(object)->ydata);
    if (x == nullptr || y == nullptr) return to_unicode("kvalo.TimeSeries hasn't been loaded yet");
    if (x->empty() || y->empty()) return to_unicode("kvalo.TimeSeries is empty");
    return to_unicode(fmt::format("{} elements, {}kB", y->size(), (x->capacity() + y->capacity()) >> 7));
  });
}

// ---- elements ----

Py_ssize_t series_length(PyObject* object) {
  const Column* y = axis_of(self_of(object)->ydata);
  return y != nullptr ? static_cast<Py_ssize_t>(y->size()) : 0;
}

struct Element {
  Column& x;
  Column& y;
  uint64_t index;
};

Element element_at(PyObject* object, Py_ssize_t index) {
  Column* x = axis_of(self_of(object)->xdata);
  Column* y = axis_of(self_of(object)->ydata);
  if (x == nullptr || y == nullptr) fail(PyExc_Exception, "Data not loaded");
  // A script may have replaced one axis by a shorter Array.
  return {*x, *y, checked_index(checked_index(index, y->size()), x->size())};
}

PyObject* series_item(PyObject* object, Py_ssize_t index) {
  return guard(PyExc_Exception, [&] {
    const Element at = element_at(object, index);
    return Py_BuildValue("(dd)", at.x[at.index], at.y[at.index]);
  });
}

void set_element(PyObject* object, Py_ssize_t index, PyObject* value) {
  constexpr const char* unsupported = "Unsupported type";
  element_at(object, index);
  const bool is_pair = PyTuple_Check(value) && PyTuple_GET_SIZE(value) == 2;
  if (!is_pair && !is_number(value)) fail(PyExc_TypeError, "{:s}", unsupported);
  const double x = is_pair ? number_argument(PyTuple_GET_ITEM(value, 0), unsupported) : 0.0;
  const double y = number_argument(is_pair ? PyTuple_GET_ITEM(value, 1) : value, unsupported);
  const Element at = element_at(object, index);
  const std::span<double> times = is_pair ? at.x.write() : std::span<double>();
  at.y.write()[at.index] = y;
  if (is_pair) times[at.index] = x;
}

int series_set_item(PyObject* object, Py_ssize_t index, PyObject* value) {
  if (value == nullptr) {
    PyErr_SetString(PyExc_TypeError, "Samples of a kvalo.TimeSeries cannot be deleted");
    return -1;
  }
  return guard(
      PyExc_Exception,
      [&] {
        set_element(object, index, value);
        return 0;
      },
      -1);
}

Py_ssize_t index_of(PyObject* key) {
  const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
  if (index == -1) check_python();
  return index;
}

PyObject* child_item(PyObject* object, PyObject* key) {
  const std::string name = text_argument(key);
  TimeSeriesObject* self = self_of(object);
  const std::shared_ptr<TimeSeries> record =
      self->source != nullptr ? *self->source : registry().find_by_id(self->id64);
  const std::shared_ptr<TimeSeries> child = record ? record->child(name) : nullptr;
  if (!child) fail(PyExc_KeyError, "'{:s}' is not a valid key for this TimeSeries", name);
  return object_of(child).release();
}

PyObject* series_subscript(PyObject* object, PyObject* key) {
  return guard(PyExc_Exception, [&] {
    if (PyUnicode_Check(key)) return child_item(object, key);
    if (!PyIndex_Check(key)) fail(PyExc_TypeError, "Key must be a string");
    return series_item(object, index_of(key));
  });
}

int series_set_subscript(PyObject* object, PyObject* key, PyObject* value) {
  return guard(
      PyExc_Exception,
      [&] {
        if (!PyIndex_Check(key)) fail(PyExc_NotImplementedError, "This operation is not allowed");
        return series_set_item(object, index_of(key), value);
      },
      -1);
}

// ---- methods ----

PyObject* series_get_full_name(PyObject* object) {
  const TimeSeries* record = record_of(self_of(object));
  return to_unicode(record != nullptr ? record->full_name : "");
}

PyObject* series_get_main_name(PyObject* object) {
  const TimeSeries* record = record_of(self_of(object));
  return to_unicode(record != nullptr ? record->main_name : "");
}

PyObject* series_get_script(PyObject* object) { return to_unicode(self_of(object)->script); }

double period_of(PyObject* object) {
  ensure_loaded(self_of(object));
  const Column* x = axis_of(self_of(object)->xdata);
  if (x == nullptr || x->empty()) fail(PyExc_Exception, "kvalo.TimeSeries object is empty");
  if (x->size() < 2) fail(PyExc_Exception, "kvalo.TimeSeries object has only one sample, so no period");
  return kernels::sampling_period(x->values());
}

double series_get_fs(PyObject* object) { return 1.0 / period_of(object); }

PyObject* series_tag(PyObject* object, PyObject* value) {
  const TimeSeries* record = record_of(self_of(object));
  if (record == nullptr || record->main_name.empty()) {
    fail(PyExc_Exception, "kvalo.TimeSeries does not have a name associated to it");
  }
  if (!is_number(value)) fail(PyExc_ValueError, "Argument must be a numeric value");
  const std::string text = mirn3::tag::get(record->main_name, number_argument(value, ""));
  return to_unicode(text.empty() ? "n/a" : mirn3::str::to_utf8(text));
}

void series_load(PyObject* object) { load_series(self_of(object)); }

// ---- tables ----

PySequenceMethods series_sequence = {
    .sq_length = series_length,
    .sq_item = series_item,
    .sq_ass_item = series_set_item,
};

PyMappingMethods series_mapping = {
    .mp_length = series_length,
    .mp_subscript = series_subscript,
    .mp_ass_subscript = series_set_subscript,
};

PyMemberDef series_members[] = {
    {"id64", T_ULONGLONG, offsetof(TimeSeriesObject, id64), READONLY, nullptr},
    {"flags", T_ULONGLONG, offsetof(TimeSeriesObject, flags), 0, nullptr},
    {"xdata", T_OBJECT, offsetof(TimeSeriesObject, xdata), 0, nullptr},
    {"ydata", T_OBJECT, offsetof(TimeSeriesObject, ydata), 0, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

constexpr Frame plain{.failures = &PyExc_Exception};
constexpr Frame times{.online = "time_impl"};

PyMethodDef series_methods[] = {
    row<"get_full_name", "($self, /)", "", "Return variable's unformatted name", series_get_full_name,
        plain>(),
    row<"get_main_name", "($self, /)", "", "Return variable's unformatted name", series_get_main_name,
        plain>(),
    row<"get_fs", "($self, /)", "", "Return estimated sampling frequency in hertz", series_get_fs,
        Frame{.failures = &PyExc_Exception, .online = "get_fs"}>(),
    row<"get_ts", "($self, /)", "", "Return estimated sampling period in seconds", period_of, plain>(),
    row<"get_script", "($self, /)", "", "Return re-built creation script [beta]", series_get_script, plain>(),
    row<"axpb", "($self, a, b, /)", "OO", "Apply gain and offset to x-axis values, as in A*X + B",
        query::axpb, Frame{.online = "axpb", .counted = "axpb"}>(),
    row<"aypb", "($self, a, b, /)", "OO", "Apply gain and offset to y-axis values, as in A*Y + B",
        query::aypb, Frame{.online = "aypb", .counted = "aypb"}>(),
    row<"avg", "($self, /)", "",
        "Return kvalo.TimeSeries' average value. The logic uses ZOH to interpolate between samples",
        query::avg, Frame{.online = "avg"}>(),
    row<"max", "($self, /)", "", "Return kvalo.TimeSeries' maximum y-value", query::max,
        Frame{.online = "max"}>(),
    row<"min", "($self, /)", "", "Return kvalo.TimeSeries' minimum y-value", query::min,
        Frame{.online = "min"}>(),
    row<"sum", "($self, /)", "", "Return kvalo.TimeSeries' values sum", query::sum, Frame{.online = "sum"}>(),
    row<"tag", "($self, value, /)", "O", "Return tag associated with kvalo.TimeSeries", series_tag,
        Frame{.failures = &PyExc_Exception, .online = "tag", .counted = "tag"}>(),
    row<"time_bt", "($self, lo, hi, /)", "*",
        "Return total time in which y-axis values are between the specified limits", query::time_bt,
        Frame{.online = "time_bt"}>(),
    row<"time_eq", "($self, value, /)", "*",
        "Return total time in which y-axis values are equal to the argument", query::time_eq, times>(),
    row<"time_gt", "($self, value, /)", "*",
        "Return total time in which y-axis values are greater than the argument", query::time_gt, times>(),
    row<"time_lt", "($self, value, /)", "*",
        "Return total time in which y-axis values are less than the argument", query::time_lt, times>(),
    row<"time_ne", "($self, value, /)", "*",
        "Return total time in which y-axis values are not equal to the argument", query::time_ne, times>(),
    row<"index", "($self, value, /, op='eq')", "d|s", "Return sample index that match the search criteria",
        query::index, Frame{.online = "index"}>(),
    row<"inspect", "($self, /)", "", "Print internal information for debugging", query::inspect,
        Frame{.failures = &PyExc_Exception, .online = "inspect"}>(),
    row<"load", "($self, /)", "", "Load data from source", series_load, plain>(),
    row<"pattern", "($self, t0, t1, /)", "*", "Detect pattern and return flags", query::pattern,
        Frame{.failures = &PyExc_Exception, .trace = "pattern1", .online = "pattern"}>(),
    row<"slice", "($self, tini, tend)", "dd", "Extract subsequence delimited by time arguments", query::slice,
        Frame{.online = "slice"}>(),
    row<"sort", "($self, /)", "", "Sort samples chronologically (i.e. by x-axis values)", query::sort,
        Frame{.online = "sort"}>(),
    {},
};

}  // namespace

PyTypeObject TimeSeriesType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.TimeSeries",
    .tp_basicsize = sizeof(TimeSeriesObject),
    .tp_dealloc = series_dealloc,
    .tp_repr = series_repr,
    .tp_as_number = &series_number,
    .tp_as_sequence = &series_sequence,
    .tp_as_mapping = &series_mapping,
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC,
    .tp_doc = "Kvalo TimeSeries object",
    .tp_traverse = series_traverse,
    .tp_clear = series_clear,
    .tp_richcompare = series_richcompare,
    .tp_methods = series_methods,
    .tp_members = series_members,
    .tp_getset = instance_dict_getset,
    .tp_dictoffset = offsetof(TimeSeriesObject, dict),
    .tp_init = series_init,
    .tp_new = series_new,
};

static_assert(sizeof(TimeSeriesObject) == sizeof(PyObject) + 7 * sizeof(void*));

}  // namespace mirn2
