#include "functions/lookup.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* lut1d(PyObject*, PyObject*, PyObject*) { return not_available("lut1d"); }
PyObject* lut2d(PyObject*, PyObject*, PyObject*) { return not_available("lut2d"); }

}  // namespace mirn2::fn
