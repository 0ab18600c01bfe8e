// The Python type Container.
#include "containers/container_type.h"

#include <structmember.h>

#include <algorithm>
#include <cstddef>

#include "containers/archives.h"
#include "containers/assembly.h"
#include "containers/bank.h"
#include "containers/derived_readers.h"
#include "containers/realtime.h"
#include "hostlink/send.h"
#include "objects/row.h"
#include "objects/time_series.h"
#include "runtime/num.h"
#include "runtime/num_merge.h"
#include "runtime/rtd.h"
#include "runtime/str.h"

namespace mirn2 {

namespace {

ContainerObject* self_of(PyObject* self) { return reinterpret_cast<ContainerObject*>(self); }

constexpr uint64_t initial_flags = 9;
constexpr size_t random_prefix_length = 8;

// ---- life and death ----

PyObject* container_new(PyTypeObject* type, PyObject*, PyObject*) {
  return guard(PyExc_Exception, [&] {
    Ref object = checked(type->tp_alloc(type, 0));
    self_of(object.get())->id64 = mirn3::num::create_id();
    self_of(object.get())->flags = initial_flags;
    self_of(object.get())->request = new ContainerRequest;
    return object.release();
  });
}

// Removes the container from the registry; its variables leave with the attributes that show them.
void leave_registry(ContainerObject* self) noexcept {
  if (self->container == nullptr) return;
  const std::shared_ptr<Container> container = std::move(*self->container);
  delete std::exchange(self->container, nullptr);
  container->object = nullptr;
  if (series_registry != nullptr) {
    bank().drop_container(container->id);
    // Series that a failed construction has not shown yet would stay forever.
    for (const auto& series : container->variables()) {
      if (series->shown_by.empty()) series_registry->drop(series->id);
    }
  }
  mirn3::rtd::set_offline();
}

int container_traverse(PyObject* object, visitproc visit, void* arg) {
  Py_VISIT(self_of(object)->dict);
  return 0;
}

int container_clear(PyObject* object) {
  Py_CLEAR(self_of(object)->dict);
  return 0;
}

void container_dealloc(PyObject* object) {
  PyObject_GC_UnTrack(object);
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  leave_registry(self_of(object));
  container_clear(object);
  delete self_of(object)->request;
  Py_TYPE(object)->tp_free(object);
  PyErr_Restore(type, value, traceback);
}

// ---- construction ----

// Where a variable becomes an attribute: in its parent's object, or in the container's.
PyObject** home_of(ContainerObject* self, const TimeSeries& series) {
  for (const auto& weak : series.parents) {
    const std::shared_ptr<TimeSeries> parent = weak.lock();
    if (!parent || parent->owner == nullptr) continue;
    parent->owner->flags |= flag_has_children;
    return &parent->owner->dict;
  }
  return &self->dict;
}

void post_init(ContainerObject* self) {
  const Trace trace("tp_init_post");
  Container& container = **self->container;
  container.object = self;
  self->id64 = container.id;
  for (const auto& series : container.variables()) {
    if (series->owner != nullptr) continue;
    const Ref object = show_record(series->id, self->request->tini, self->request->tend);
    set_child_attribute(home_of(self, *series), *series, object.get());
  }
}

// Reports the failure to the host too; the script gets the exception that creation left.
[[noreturn]] void fail_with_host(const char* text) {
  hostlink::report_error(text);
  if (PyErr_Occurred() == nullptr) PyErr_SetString(PyExc_Exception, text);
  throw python_error();
}

void attach(ContainerObject* self, std::shared_ptr<Container> container, ContainerRequest request) {
  self->container = new std::shared_ptr<Container>(std::move(container));
  *self->request = std::move(request);
  post_init(self);
}

void open_file(ContainerObject* self, ContainerRequest request) {
  const bool with_plugin = request.plugin.size() >= 2;
  std::shared_ptr<Container> container = with_plugin
                                             ? create_container_with_plugin(request.path, request.plugin)
                                             : create_container_from_file(request.path);
  if (!container) fail_with_host("File is not compatible!");
  if (!with_plugin) request.plugin.clear();
  attach(self, std::move(container), std::move(request));
}

void open_realtime(ContainerObject* self, ContainerRequest request) {
  std::shared_ptr<Container> container = create_container_from_realtime(request.plugin);
  if (!container) fail_with_host("Error with real-time data connection!");
  mirn3::rtd::set_online();
  attach(self, std::move(container), std::move(request));
  prepare_receiving(**self->container);
}

void container_init(PyObject* object, const char* path, const char* plugin, std::optional<double> tini,
                    std::optional<double> tend, unsigned char realtime, unsigned int samples) {
  ContainerRequest request;
  request.tini = tini.value_or(request.tini);
  request.tend = tend.value_or(request.tend);
  request.samples = samples;
  if (request.tini >= request.tend) fail(PyExc_ValueError, "Final time must be greater than initial time");
  leave_registry(self_of(object));  // a second __init__ starts over
  Py_CLEAR(self_of(object)->dict);
  request.plugin = plugin != nullptr ? plugin : "";
  if (path != nullptr) {
    request.path = path;
    open_file(self_of(object), std::move(request));
  } else if (realtime != 0 && !request.plugin.empty()) {
    open_realtime(self_of(object), std::move(request));
  } else {
    fail(PyExc_Exception, "Must provide path!");
  }
}

PyObject* container_repr(PyObject* object) {
  return guard(PyExc_Exception, [&] {
    const ContainerObject* self = self_of(object);
    if (self->container == nullptr) return to_unicode("Empty container");
    return to_unicode(fmt::format("{:d} variables", (*self->container)->count()));
  });
}

// ---- mapping ----

Py_ssize_t container_length(PyObject* object) {
  const ContainerObject* self = self_of(object);
  return self->container != nullptr ? static_cast<Py_ssize_t>((*self->container)->count()) : 0;
}

PyObject* container_subscript(PyObject* object, PyObject* key) {
  return guard(PyExc_Exception, [&] {
    if (!PyUnicode_Check(key)) fail(PyExc_TypeError, "Key must be a string");
    const std::string name = text_argument(key);
    const ContainerObject* self = self_of(object);
    const std::shared_ptr<TimeSeries> series =
        self->container != nullptr ? (*self->container)->find(name) : nullptr;
    if (!series) fail(PyExc_KeyError, "'{:s}' is not a valid key for this Container", name);
    return object_of(series).release();
  });
}

int container_set_subscript(PyObject*, PyObject*, PyObject*) {
  report(PyExc_NotImplementedError, "This operation is not allowed");
  return -1;
}

// ---- methods ----

Ref container_get_path(PyObject* object) {
  Ref paths = checked(PyList_New(0));
  const ContainerObject* self = self_of(object);
  if (self->container == nullptr) return paths;
  for (const auto& reader : (*self->container)->readers()) {
    const std::string path = source_path(*reader).string();
    const Ref text =
        checked(PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size())));
    if (PyList_Append(paths.get(), text.get()) < 0) throw python_error();
  }
  return paths;
}

uint64_t container_get_size(PyObject* object) { return static_cast<uint64_t>(container_length(object)); }

struct AxisOf {
  AxisScale TimeSeries::*scale;
  ColumnPtr TimeSeries::*column;
};
constexpr AxisOf x_axis{&TimeSeries::x_scale, &TimeSeries::x};
constexpr AxisOf y_axis{&TimeSeries::y_scale, &TimeSeries::y};

template <const AxisOf& axis>
void container_scale(PyObject* object, PyObject* gain_argument, PyObject* offset_argument) {
  const double gain = number_argument(gain_argument, "Gain must be a number");
  const double offset = number_argument(offset_argument, "Offset must be a number");
  const ContainerObject* self = self_of(object);
  if (self->container == nullptr) return;
  for (const auto& series : (*self->container)->variables()) {
    scale_axis(*series, axis.scale, axis.column, {gain, offset});
  }
}

void container_merge(PyObject* object, const char* path) { merge_file(self_of(object), path); }

// Gives a loaded record the stamps of its clock, in every object that shows it.
void apply_clock(const std::shared_ptr<TimeSeries>& record) {
  if (!record->is_loaded()) return;
  LoadedSamples samples{record->x->hold(), record->y->hold()};
  set_clock(samples, record->clock, record->full_name);
  if (samples.x.data() == record->x->hold().data()) return;
  record->x->replace(std::move(samples.x), Column::Change::repeated_by_loading);
}

void container_replace_xdata(PyObject* object, PyObject* clock_argument) {
  const Operand clock(series_argument(clock_argument));
  if (clock.size() == 0) fail(PyExc_ValueError, "'{:s}' has no values to take as time", clock.name());
  if (!mirn3::num::is_strictly_ascending(clock.y())) {
    fail(PyExc_ValueError,
         "Values must be strictly increasing, i.e, any value at index 'k' is bigger than the one at 'k-1'");
  }
  const ContainerObject* self = self_of(object);
  if (self->container == nullptr) return;
  Samples stamps;
  stamps.resize_for_overwrite(clock.size());
  std::ranges::copy(clock.y(), stamps.data());
  for (const auto& series : (*self->container)->variables()) {
    series->clock = stamps;
    series->x_scale = {};  // it applied to the earlier stamps
    apply_clock(series);
  }
}

// An event lasts from the first sample that is not zero to the sample that is zero again, or to the end.
std::vector<rd::TimeWindow> event_windows(const Operand& event) {
  std::vector<rd::TimeWindow> windows;
  bool active = false;
  for (uint64_t i = 0; i < event.size(); ++i) {
    const bool was_active = std::exchange(active, event.y()[i] != 0.0);
    const double t = event.x()[i];
    if (active && !was_active) windows.push_back({t, t});
    if (active || was_active) windows.back().last = t;
  }
  return windows;
}

PyObject* container_split(PyObject* object, PyObject* event, const char* prefix_argument, int as_tuple,
                          unsigned long long limit) {
  const std::string prefix =
      prefix_argument != nullptr ? prefix_argument : mirn3::str::random(random_prefix_length);
  TimeSeriesObject* series = series_argument(event);
  const ContainerObject* self = self_of(object);
  if (container_length(object) == 0) {
    fail(PyExc_ValueError, "This function cannot be used with empty containers.");
  }
  const std::shared_ptr<Container> whole = *self->container;
  const std::vector<rd::TimeWindow> windows = event_windows(Operand(series));
  if (windows.empty()) fail(PyExc_ValueError, "No event has been detected");
  if (windows.size() > limit) {
    fail(PyExc_ValueError, "Number of detected events ({:d}) exceeds the limit ({:d})", windows.size(),
         limit);
  }
  Ref pieces = checked(PyList_New(0));
  for (const rd::TimeWindow& window : windows) {
    const size_t number = static_cast<size_t>(PyList_GET_SIZE(pieces.get())) + 1;
    const auto piece = create_container_from_window(*whole, window);
    piece->name = fmt::format("{:s}_{:d}", prefix, number);
    const Ref shown = show_container(piece, {.path = self->request->path});
    if (PyList_Append(pieces.get(), shown.get()) < 0) throw python_error();
  }
  return as_tuple != 0 ? PyList_AsTuple(pieces.get()) : pieces.release();
}

// ---- real time ----

template <auto work>
void with_container(PyObject* object) {
  if (self_of(object)->container == nullptr) return;
  const std::shared_ptr<Container> container = *self_of(object)->container;
  work(*container);
}

void container_rt_read(PyObject* object) {
  const unsigned int samples = self_of(object)->request->samples;
  if (self_of(object)->container == nullptr) return;
  const std::shared_ptr<Container> container = *self_of(object)->container;
  read_received(*container, samples);
}

// ---- tables ----

PyMappingMethods container_mapping = {
    .mp_length = container_length,
    .mp_subscript = container_subscript,
    .mp_ass_subscript = container_set_subscript,
};

PyMemberDef container_members[] = {
    {"id64", T_ULONGLONG, offsetof(ContainerObject, id64), READONLY, nullptr},
    {"flags", T_ULONGLONG, offsetof(ContainerObject, flags), 0, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

constexpr Frame plain{.failures = &PyExc_Exception};
constexpr Frame live{.failures = &PyExc_RuntimeError};

PyMethodDef container_methods[] = {
    row<"get_path", "($self, /)", "", "Return container's list of paths", container_get_path, plain>(),
    row<"get_size", "($self, /)", "", "Return container's children count", container_get_size>(),
    row<"axpb", "($self, a, b, /)", "OO", "Apply gain and offset to x-axis values, as in A*X + B",
        container_scale<x_axis>, Frame{.online = "axpb", .counted = "axpb"}>(),
    row<"aypb", "($self, a, b, /)", "OO", "Apply gain and offset to y-axis values, as in A*Y + B",
        container_scale<y_axis>, Frame{.online = "aypb", .counted = "aypb"}>(),
    row<"merge", "($self, path)", "s", "Merge another file into this Container", container_merge,
        Frame{.failures = &PyExc_Exception, .trace = "merge", .online = "merge"}>(),
    row<"split", "($self, event, prefix=..., as_tuple=0, limit=1000)", "O|siK", "Split into other Containers",
        container_split, Frame{.trace = "split", .online = "split"}>(),
    row<"replace_xdata", "($self, series, /)", "O",
        "Replace current time values by a TimeSeries y-axis values", container_replace_xdata,
        Frame{.failures = &PyExc_Exception,
              .trace = "replace_xdata",
              .online = "replace_xdata",
              .counted = "replace_xdata"}>(),
    row<"rt_read", "($self, /)", "", "Refresh data received from connection (real-time only)",
        container_rt_read, live>(),
    row<"rt_start", "($self, /)", "", "Start data acquisition (real-time only)",
        with_container<start_receiving>, live>(),
    row<"rt_stop", "($self, /)", "", "Stop data acquisition (real-time only)", with_container<stop_receiving>,
        live>(),
    {},
};

// What a Container is made from.
constexpr Name parameters = "(path=..., plugin=..., tini=..., tend=..., realtime=0, samples=300)";

}  // namespace

ContainerObject* as_container(PyObject* object) noexcept {
  return object != nullptr && PyObject_TypeCheck(object, &ContainerType) ? self_of(object) : nullptr;
}

Ref show_container(std::shared_ptr<Container> container, ContainerRequest request) {
  Ref object = checked(container_new(&ContainerType, nullptr, nullptr));
  attach(self_of(object.get()), std::move(container), std::move(request));
  return object;
}

void merge_file(ContainerObject* self, const std::string& path) {
  if (self->container == nullptr)
    fail(PyExc_Exception, "The container is empty: there is nothing to merge into");
  const std::shared_ptr<Container> container = *self->container;
  add_file(*container, path);
  post_init(self);
}

PyTypeObject ContainerType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.Container",
    .tp_basicsize = sizeof(ContainerObject),
    .tp_dealloc = container_dealloc,
    .tp_repr = container_repr,
    .tp_as_mapping = &container_mapping,
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC,
    .tp_doc = signature::docstring<"Container", parameters, "Kvalo Container object">.data(),
    .tp_traverse = container_traverse,
    .tp_clear = container_clear,
    .tp_methods = container_methods,
    .tp_members = container_members,
    .tp_getset = instance_dict_getset,
    .tp_dictoffset = offsetof(ContainerObject, dict),
    .tp_init = constructor<"Container", parameters, "|ssddbI", container_init, plain>,
    .tp_new = container_new,
};

}  // namespace mirn2
