// Reports errors to Python, traces calls and converts arguments for every script function.
#include "objects/frame.h"

#include "runtime/log.h"
#include "runtime/python.h"
#include "runtime/rtd.h"

namespace mirn2 {

namespace log = mirn3::log;

std::nullptr_t report_text(PyObject* type, std::string_view text) noexcept {
  log::write(log::error, text);
  const PyGILState_STATE state = PyGILState_Ensure();
  try {
    PyErr_SetString(type, std::string(text).c_str());
  } catch (...) {
    PyErr_NoMemory();
  }
  PyGILState_Release(state);
  return nullptr;
}

Trace::Trace(std::string_view name) noexcept : name_(name) {
  if (log::enabled(log::trace)) log::write(log::trace, fmt::format("{:s} [enter]", name_));
}

Trace::~Trace() {
  if (std::uncaught_exceptions() > exceptions_) return;
  if (log::enabled(log::trace)) log::write(log::trace, fmt::format("{:s} [leave]", name_));
}

void refuse_online(std::string_view name) {
  if (!mirn3::rtd::is_online()) return;
  fail(PyExc_RuntimeError, "Function '{:s}' cannot be used while there's an active real-time data connection",
       name);
}

void require_count(Py_ssize_t given, size_t count, std::string_view name) {
  if (given == static_cast<Py_ssize_t>(count)) return;
  fail(PyExc_ValueError, "Function '{:s}' takes {:d} arguments ({:d} given)", name, count, given);
}

std::string to_text(PyObject* value) { return mirn3::python::to_string(value); }

std::string text_argument(PyObject* value) {
  if (PyUnicode_Check(value)) {
    const Ref bytes = Ref::steal(PyUnicode_AsEncodedString(value, "UTF-8", "strict"));
    if (bytes) return std::string(PyBytes_AS_STRING(bytes.get()), PyBytes_GET_SIZE(bytes.get()));
    PyErr_Clear();
  }
  throw std::runtime_error("Object is not unicode");
}

PyObject* to_unicode(std::string_view text) {
  PyObject* result = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
  if (result == nullptr) throw python_error();
  return result;
}

double number_argument(PyObject* value, const char* text) {
  if (!is_number(value)) fail(PyExc_TypeError, "{:s}", text);
  const double number = PyFloat_AsDouble(value);
  if (number == -1.0) check_python();
  return number;
}

std::string_view type_name(const PyTypeObject* type) {
  const std::string_view name = type->tp_name;
  const size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? name : name.substr(dot + 1);
}

PyGetSetDef instance_dict_getset[] = {
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace mirn2
