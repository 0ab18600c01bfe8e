// Makes the floats of a tuple whose values come later.
#include "objects/float_tuple.h"

#include "objects/frame.h"

namespace mirn2 {

FloatTuple::FloatTuple(size_t floats) : tuple_(checked(PyTuple_New(static_cast<Py_ssize_t>(floats)))) {
  for (size_t i = 0; i < floats; ++i) {
    PyTuple_SET_ITEM(tuple_.get(), static_cast<Py_ssize_t>(i), checked(PyFloat_FromDouble(0.0)).release());
  }
}

}  // namespace mirn2
