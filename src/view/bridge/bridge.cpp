// kvalo_view._view: the extension module between the Python package kvalo_view and the host surface.
//
// Charts are described by the JSON of docs/view-protocol.md, what is drawn by its tiles; samples are
// read-only buffers that share the script's memory. Functions that compute or wait release the interpreter
// lock.
#include <Python.h>

#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "runtime/ilc.h"
#include "view/texts.h"
#include "view/view.h"

namespace {

using namespace kvalo_view;

// Never destroyed: messages may come until the process ends.
Host& host() {
  static Host* const one = new Host;
  return *one;
}

PyObject* request_call = nullptr;  // what to call with requests; guarded by the interpreter lock

// Runs work without the interpreter lock and brings failures out as Python errors. Returns whether it went
// well.
template <typename Work>
bool without_lock(Work&& work) {
  std::exception_ptr failure;
  Py_BEGIN_ALLOW_THREADS;
  try {
    work();
  } catch (...) {
    failure = std::current_exception();
  }
  Py_END_ALLOW_THREADS;
  if (!failure) return true;
  try {
    std::rethrow_exception(failure);
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_OSError, error.what());
  }
  return false;
}

PyObject* text(const std::string& value) {
  return PyUnicode_DecodeUTF8(value.data(), static_cast<Py_ssize_t>(value.size()), "replace");
}

// ---- samples ----

struct SamplesObject {
  PyObject_HEAD std::shared_ptr<const Data> owner;
  std::span<const double> values;
};

void samples_dealloc(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  auto* object = reinterpret_cast<SamplesObject*>(self);
  object->owner.~shared_ptr();
  type->tp_free(self);
  Py_DECREF(type);
}

int samples_buffer(PyObject* self, Py_buffer* view, int flags) {
  auto* object = reinterpret_cast<SamplesObject*>(self);
  static double nothing = 0;  // NumPy wants an address even for no samples
  double* data = object->values.empty() ? &nothing : const_cast<double*>(object->values.data());
  const auto bytes = static_cast<Py_ssize_t>(object->values.size_bytes());
  if (PyBuffer_FillInfo(view, self, data, bytes, 1, flags) != 0) return -1;
  view->itemsize = sizeof(double);
  if ((flags & PyBUF_FORMAT) != 0) view->format = const_cast<char*>("d");
  if ((flags & PyBUF_ND) != 0) {
    view->internal = new Py_ssize_t(static_cast<Py_ssize_t>(object->values.size()));
    view->shape = static_cast<Py_ssize_t*>(view->internal);
  }
  if ((flags & PyBUF_STRIDES) == PyBUF_STRIDES) view->strides = &view->itemsize;
  return 0;
}

void samples_release(PyObject*, Py_buffer* view) { delete static_cast<Py_ssize_t*>(view->internal); }

Py_ssize_t samples_length(PyObject* self) {
  return static_cast<Py_ssize_t>(reinterpret_cast<SamplesObject*>(self)->values.size());
}

PyType_Slot samples_slots[] = {
    {Py_tp_doc,
     const_cast<char*>("Samples of a chart: a read-only buffer of doubles that shares the script's memory.")},
    {Py_tp_dealloc, reinterpret_cast<void*>(samples_dealloc)},
    {Py_bf_getbuffer, reinterpret_cast<void*>(samples_buffer)},
    {Py_bf_releasebuffer, reinterpret_cast<void*>(samples_release)},
    {Py_sq_length, reinterpret_cast<void*>(samples_length)},
    {0, nullptr},
};
PyType_Spec samples_spec = {"kvalo_view._view.Samples", sizeof(SamplesObject), 0,
                            Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, samples_slots};
PyTypeObject* samples_type = nullptr;

PyObject* new_samples(const std::shared_ptr<const Data>& owner, std::span<const double> values) {
  PyObject* self = samples_type->tp_alloc(samples_type, 0);
  if (self == nullptr) return nullptr;
  auto* object = reinterpret_cast<SamplesObject*>(self);
  new (&object->owner) std::shared_ptr<const Data>(owner);
  object->values = values;
  return self;
}

// ---- functions ----

PyObject* handler(PyObject*, PyObject*) { return PyCapsule_New(host().handler(), nullptr, nullptr); }

PyObject* has_host(PyObject*, PyObject*) {
  const auto* channel = mirn3::ilc::channel;
  return PyBool_FromLong(channel != nullptr && channel->has_handler());
}

void tell(const Request& request) {
  if (request_call == nullptr) return;
  static constexpr const char* names[] = {"save", "selfie", "exit", "error"};
  // A failure stays set: it is raised where the script sent the message.
  PyObject* result = PyObject_CallFunction(request_call, "sKss", names[static_cast<size_t>(request.type)],
                                           static_cast<unsigned long long>(request.chart),
                                           request.text.c_str(), request.size.c_str());
  Py_XDECREF(result);
}

PyObject* on_request(PyObject*, PyObject* call) {
  if (call != Py_None && !PyCallable_Check(call)) {
    PyErr_SetString(PyExc_TypeError, "on_request takes a function or None");
    return nullptr;
  }
  host().on_request(tell);
  Py_XSETREF(request_call, call == Py_None ? nullptr : Py_NewRef(call));
  Py_RETURN_NONE;
}

PyObject* state(PyObject*, PyObject*) {
  const auto now = host().state();
  std::string json;
  const bool fine = without_lock([&] {
    for (const auto& chart : now->charts) {
      for (const auto& series : chart->series) series->data->pyramid();
    }
    json = state_text(*now, Views(), now->version, {"", false});
  });
  return fine ? text(json) : nullptr;
}

PyObject* samples(PyObject*, PyObject* args) {
  unsigned long long id = 0;
  unsigned int key = 0;
  if (!PyArg_ParseTuple(args, "KI", &id, &key)) return nullptr;
  const auto chart = host().state()->chart(id);
  if (!chart || key >= chart->series.size()) {
    PyErr_SetString(PyExc_KeyError, "there is no such chart or series");
    return nullptr;
  }
  const auto& data = chart->series[key]->data;
  const bool is_mesh = chart->kind == Kind::mesh;
  return Py_BuildValue("NNN", new_samples(data, is_mesh ? data->mesh_x() : data->x()),
                       new_samples(data, is_mesh ? data->mesh_y() : data->y()), new_samples(data, data->z()));
}

PyObject* draw(PyObject*, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"chart", "t0", "t1", "width", "height", "ymin", "ymax", nullptr};
  unsigned long long id = 0;
  unsigned int width = 3200, height = 900;
  View view;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "K|ddIIdd", const_cast<char**>(names), &id, &view.x.lo,
                                   &view.x.hi, &width, &height, &view.y.lo, &view.y.hi)) {
    return nullptr;
  }
  if (width < 1 || width > widest || height < 1 || height > highest) {
    PyErr_Format(PyExc_ValueError, "width must be 1 to %zu and height 1 to %zu", widest, highest);
    return nullptr;
  }
  view.width = width;
  view.height = height;
  Host::Drawing drawing;
  if (!without_lock([&] { drawing = host().draw(id, view); })) return nullptr;
  PyObject* tiles = PyList_New(0);
  for (const Tile& tile : drawing.tiles) {
    const std::string bytes = tile.bytes();
    PyObject* item = PyBytes_FromStringAndSize(bytes.data(), static_cast<Py_ssize_t>(bytes.size()));
    if (tiles == nullptr || item == nullptr || PyList_Append(tiles, item) != 0) {
      Py_XDECREF(item);
      Py_XDECREF(tiles);
      return nullptr;
    }
    Py_DECREF(item);
  }
  PyObject* range = drawing.x ? Py_BuildValue("dd", drawing.x->lo, drawing.x->hi) : Py_NewRef(Py_None);
  return Py_BuildValue("NNN", tiles, text(drawing.error), range);
}

PyObject* statistics(PyObject*, PyObject* args) {
  unsigned long long id = 0;
  Range times{0, 0};
  if (!PyArg_ParseTuple(args, "Kdd", &id, &times.lo, &times.hi)) return nullptr;
  std::string json = "null";
  const bool fine = without_lock([&] {
    const auto chart = host().state()->chart(id);
    if (chart) json = statistics_text(*chart, 0, times, Views().statistics(*chart, times));
  });
  return fine ? text(json) : nullptr;
}

// A picture by a Python function, called on the server's drawing thread.
std::string picture(PyObject* call, uint64_t chart, const std::string& format, Range times) {
  const PyGILState_STATE lock = PyGILState_Ensure();
  std::string content;
  PyObject* result = PyObject_CallFunction(call, "Ksdd", static_cast<unsigned long long>(chart),
                                           format.c_str(), times.lo, times.hi);
  const bool fine = result != nullptr && PyBytes_Check(result);
  if (fine) content.assign(PyBytes_AS_STRING(result), static_cast<size_t>(PyBytes_GET_SIZE(result)));
  if (result != nullptr && !fine) PyErr_SetString(PyExc_TypeError, "picture() must return bytes");
  if (!fine) PyErr_WriteUnraisable(call);
  Py_XDECREF(result);
  PyGILState_Release(lock);
  if (!fine)
    throw std::runtime_error("The picture could not be drawn; the script's standard error says why.\n");
  return content;
}

PyObject* serve(PyObject*, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"folder", "title", "port", "picture", nullptr};
  const char* folder = nullptr;
  const char* title = "kvalo";
  unsigned short port = 0;
  PyObject* call = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "s|sHO", const_cast<char**>(names), &folder, &title, &port,
                                   &call)) {
    return nullptr;
  }
  ServerOptions options;
  options.title = title;
  options.port = port;
  options.asset = folder_assets(folder);
  if (call != Py_None) {
    Py_INCREF(call);  // for as long as the process lives, like the host
    options.picture = [call](uint64_t chart, const std::string& format, Range times) {
      return picture(call, chart, format, times);
    };
  }
  std::string address;
  if (!without_lock([&] { address = host().serve(std::move(options)); })) return nullptr;
  return text(address);
}

PyObject* stop(PyObject*, PyObject*) {
  if (!without_lock([] { host().stop(); })) return nullptr;
  Py_RETURN_NONE;
}

PyObject* wait_left(PyObject*, PyObject* args) {
  double seconds = 0.1;
  if (!PyArg_ParseTuple(args, "|d", &seconds)) return nullptr;
  if (!(seconds >= 0 && seconds <= 3600)) {
    PyErr_SetString(PyExc_ValueError, "wait_left takes 0 to 3600 seconds");
    return nullptr;
  }
  bool has_left = false;
  if (!without_lock([&] {
        has_left = host().wait_left(std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000)));
      })) {
    return nullptr;
  }
  return PyBool_FromLong(has_left);
}

PyObject* address(PyObject*, PyObject*) { return text(host().address()); }
PyObject* clients(PyObject*, PyObject*) { return PyLong_FromSize_t(host().clients()); }

PyObject* clear(PyObject*, PyObject*) {
  if (!without_lock([] { host().clear(); })) return nullptr;
  Py_RETURN_NONE;
}

template <typename Function>
PyCFunction as_c(Function* function) {
  return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}

PyMethodDef functions[] = {
    {"handler", handler, METH_NOARGS, "handler() -> capsule for kvalo.callback"},
    {"has_host", has_host, METH_NOARGS, "has_host() -> whether any handler is installed in this process"},
    {"on_request", on_request, METH_O,
     "on_request(call): call(kind, chart, text, size) for kind save, selfie, exit and error; None: nobody"},
    {"state", state, METH_NOARGS,
     "state() -> JSON text of pages, charts and settings (docs/view-protocol.md)"},
    {"samples", samples, METH_VARARGS,
     "samples(chart, series) -> x, y and z as read-only buffers; series is its key"},
    {"draw", as_c(draw), METH_VARARGS | METH_KEYWORDS,
     "draw(chart, t0, t1, width=3200, height=900, ymin, ymax) -> list of tiles (bytes), error, range of the "
     "x axis"},
    {"statistics", statistics, METH_VARARGS, "statistics(chart, t0, t1) -> JSON text"},
    {"serve", as_c(serve), METH_VARARGS | METH_KEYWORDS,
     "serve(folder, title='kvalo', port=0, picture=None) -> address; picture(chart, format, t0, t1) -> "
     "bytes"},
    {"stop", stop, METH_NOARGS, "stop(): ends the server"},
    {"wait_left", wait_left, METH_VARARGS, "wait_left(seconds=0.1) -> whether the last page has left"},
    {"address", address, METH_NOARGS, "address() -> of the page; empty without a server"},
    {"clients", clients, METH_NOARGS, "clients() -> number of open pages"},
    {"clear", clear, METH_NOARGS, "clear(): removes all charts and pages"},
    {},
};

PyModuleDef module_def = {PyModuleDef_HEAD_INIT,
                          "kvalo_view._view",
                          "The C++ side of kvalo_view.",
                          -1,
                          functions,
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

// The server's threads end before the interpreter does.
bool stop_at_exit(PyObject* module) {
  PyObject* atexit = PyImport_ImportModule("atexit");
  PyObject* function = PyObject_GetAttrString(module, "stop");
  PyObject* result = atexit != nullptr && function != nullptr
                         ? PyObject_CallMethod(atexit, "register", "O", function)
                         : nullptr;
  Py_XDECREF(atexit);
  Py_XDECREF(function);
  Py_XDECREF(result);
  return result != nullptr;
}

}  // namespace

PyMODINIT_FUNC PyInit__view() {  // NOLINT(bugprone-reserved-identifier): the interpreter looks for it
  PyObject* module = PyModule_Create(&module_def);
  if (module == nullptr) return nullptr;
  samples_type = reinterpret_cast<PyTypeObject*>(PyType_FromSpec(&samples_spec));
  if (samples_type == nullptr || !stop_at_exit(module)) {
    Py_DECREF(module);
    return nullptr;
  }
  return module;
}
