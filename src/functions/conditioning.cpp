#include "functions/conditioning.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* clamp(PyObject*, PyObject*, PyObject*) { return not_available("clamp"); }
PyObject* debounce(PyObject*, PyObject*, PyObject*) { return not_available("debounce"); }
PyObject* drop(PyObject*, PyObject*, PyObject*) { return not_available("drop"); }
PyObject* hysteresis(PyObject*, PyObject*, PyObject*) { return not_available("hysteresis"); }
PyObject* in_range(PyObject*, PyObject*, PyObject*) { return not_available("in_range"); }
PyObject* lerp(PyObject*, PyObject*, PyObject*) { return not_available("lerp"); }
PyObject* stale(PyObject*, PyObject*, PyObject*) { return not_available("stale"); }
PyObject* unpack(PyObject*, PyObject*, PyObject*) { return not_available("unpack"); }

}  // namespace mirn2::fn
