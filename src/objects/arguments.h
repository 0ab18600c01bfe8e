// The arguments of one call, as the interpreter hands them over, and their way into C++ values.
#pragma once

#include <Python.h>

#include <span>
#include <vector>

#include "objects/frame.h"

namespace mirn2 {

// What a function that reads its arguments by hand receives: those given by position, borrowed.
using Items = std::span<PyObject* const>;

struct Call {
  PyObject* const* items;  // by position, then the values of the keywords
  Py_ssize_t given;        // by position
  PyObject* keywords;      // a tuple of names, or null

  // The arguments as the parser takes them; null for no keywords. Throws python_error.
  Ref tuple() const;
  Ref dict() const;
};

// A constructor's arguments as those of a call.
class UnpackedCall {
 public:
  UnpackedCall(PyObject* args, PyObject* keywords);
  Call call() const noexcept { return {items_.data(), given_, names_.get()}; }

 private:
  std::vector<PyObject*> items_;
  Py_ssize_t given_;
  Ref names_;
};

// Finds each argument's place among the parameters: null where none is given. Answers false for a call that
// the parser will refuse: unknown names, something given twice, too much or too little.
bool arrange(const Call& call, std::span<const char* const> names, size_t required,
             std::span<PyObject*> places) noexcept;

// Values of the types that need no conversion, taken as the parser takes them. False: ask the parser.
inline bool take(PyObject* item, PyObject*& value) noexcept {
  value = item;
  return true;
}
inline bool take(PyObject* item, double& value) noexcept {
  if (!PyFloat_CheckExact(item)) return false;
  value = PyFloat_AS_DOUBLE(item);
  return true;
}
bool take(PyObject* item, const char*& value) noexcept;
template <typename Other>
bool take(PyObject*, Other&) noexcept {
  return false;
}

}  // namespace mirn2
