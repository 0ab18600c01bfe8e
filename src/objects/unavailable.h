// What a function, method or operator that this version does not have yet does: it raises
// NotImplementedError with its own name.
#pragma once

#include "objects/frame.h"

namespace mirn2 {

inline std::nullptr_t not_available(std::string_view name) {
  return report(PyExc_NotImplementedError, "kvalo.{:s} is not available in this version", name);
}

// As a function or method of any calling style, and as a number slot.
template <Name name>
PyObject* unavailable(PyObject*, PyObject*) {
  return not_available(name.text);
}
template <Name name>
PyObject* unavailable_unary(PyObject*) {
  return not_available(name.text);
}
template <Name name>
PyObject* unavailable_ternary(PyObject*, PyObject*, PyObject*) {
  return not_available(name.text);
}

}  // namespace mirn2
