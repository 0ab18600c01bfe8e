// The frame that every script function and method runs in: one way to report an error, one place that
// turns C++ exceptions into Python ones, the trace, and the conversions of Python arguments. Functions and
// methods get it from their row (row.h); type slots call guard() themselves.
#pragma once

#include <Python.h>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "objects/ref.h"

namespace mirn2 {

// Writes the text to the log at severity 3 and sets it as the Python error, taking the interpreter
// lock for that. Returns null, for the caller to return.
std::nullptr_t report_text(PyObject* type, std::string_view text) noexcept;

template <typename... Args>
std::nullptr_t report(PyObject* type, fmt::format_string<Args...> format, Args&&... args) {
  return report_text(type, fmt::format(format, std::forward<Args>(args)...));
}

// A failure with its Python exception type; guard() reports it.
class script_error : public std::runtime_error {
 public:
  script_error(PyObject* type, const std::string& text) : std::runtime_error(text), type_(type) {}
  PyObject* type() const noexcept { return type_; }

 private:
  PyObject* type_;  // one of the interpreter's own exception types, which never go away
};

// Thrown where the interpreter has set an error already; guard() lets that error stand.
struct python_error : std::exception {
  const char* what() const noexcept override { return "a Python error is set"; }
};

template <typename... Args>
[[noreturn]] void fail(PyObject* type, fmt::format_string<Args...> format, Args&&... args) {
  throw script_error(type, fmt::format(format, std::forward<Args>(args)...));
}

// Runs the work of a script function. Exceptions become Python errors: script_error with its own
// type, memory exhaustion as MemoryError, everything else with `type`. Returns `failed` then.
template <typename Work, typename Result = decltype(std::declval<Work>()())>
Result guard(PyObject* type, Work&& work, Result failed) noexcept {
  try {
    return work();
  } catch (const python_error&) {
  } catch (const script_error& error) {
    report_text(error.type(), error.what());
  } catch (const std::bad_alloc&) {
    report_text(PyExc_MemoryError, "There is not enough memory for this operation");
  } catch (const std::exception& error) {
    report_text(type, error.what());
  }
  return failed;
}

template <typename Work>
PyObject* guard(PyObject* type, Work&& work) noexcept {
  return guard<Work, PyObject*>(type, std::forward<Work>(work), nullptr);
}

// Traces "name [enter]", and "name [leave]" on a normal return, at severity 0.
class Trace {
 public:
  explicit Trace(std::string_view name) noexcept;
  ~Trace();
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

 private:
  std::string_view name_;
  int exceptions_ = std::uncaught_exceptions();
};

// Releases the interpreter lock around work that touches no Python object.
template <typename Work>
auto without_gil(Work&& work) {
  struct Released {
    PyThreadState* state = PyEval_SaveThread();
    ~Released() { PyEval_RestoreThread(state); }
  } released;
  return work();
}

// Throws RuntimeError when a real-time data connection is active; `name` is the function named in the text.
void refuse_online(std::string_view name);

// Throws ValueError "Function '{name}' takes {count} arguments ({given} given)" unless both counts agree.
void require_count(Py_ssize_t given, size_t count, std::string_view name);

// UTF-8 of any object: itself for a str, else str(object). Throws std::runtime_error.
std::string to_text(PyObject* value);

// UTF-8 of an argument that must be a str. Throws std::runtime_error "Object is not unicode".
std::string text_argument(PyObject* value);

// A str from UTF-8; bytes that are not UTF-8 become replacement characters. Throws python_error.
PyObject* to_unicode(std::string_view text);

// The value of a float or an int. Throws TypeError with `text` for anything else, and the
// interpreter's own error for an int beyond the range of a double.
double number_argument(PyObject* value, const char* text);

// Whether the object is a float or an int (or a subtype).
inline bool is_number(PyObject* value) { return PyFloat_Check(value) || PyLong_Check(value); }

// The name of a type without its module, as the type tests of operands compare it.
std::string_view type_name(const PyTypeObject* type);

// Throws when the interpreter has an error set.
inline void check_python() {
  if (PyErr_Occurred() != nullptr) throw python_error();
}

// A reference that must not be null: throws python_error when it is.
inline Ref checked(PyObject* object) {
  if (object == nullptr) throw python_error();
  return Ref::steal(object);
}

// A name as a template argument.
template <size_t N>
struct Name {
  char text[N];
  constexpr Name(const char (&name)[N]) { std::copy_n(name, N, text); }  // NOLINT: implicit by design
};

// Shows the instance dictionary of a type that has one as `__dict__`.
extern PyGetSetDef instance_dict_getset[];

}  // namespace mirn2
