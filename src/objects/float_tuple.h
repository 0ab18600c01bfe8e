// A tuple of floats that is made while the values are still being computed.
#pragma once

#include <Python.h>

#include <cstddef>

#include "objects/ref.h"
#include "runtime/par.h"

namespace mirn2 {

// A tuple of floats whose values are set after they are made, and before anybody else sees them.
// Throws python_error.
class FloatTuple {
 public:
  explicit FloatTuple(size_t floats);

  // Sets every item i to value_of(i), on all cores.
  template <typename ValueOf>
  void fill(ValueOf&& value_of) {
    constexpr size_t least = 1 << 15;  // worth a thread
    PyObject* const* const items = &PyTuple_GET_ITEM(tuple_.get(), 0);
    mirn3::par::ranges(static_cast<size_t>(PyTuple_GET_SIZE(tuple_.get())), least,
                       [&](size_t first, size_t last) {
                         for (size_t i = first; i < last; ++i) {
                           reinterpret_cast<PyFloatObject*>(items[i])->ob_fval = value_of(i);
                         }
                       });
  }
  PyObject* get() const noexcept { return tuple_.get(); }

 private:
  Ref tuple_;
};

}  // namespace mirn2
