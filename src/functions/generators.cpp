#include "functions/generators.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* create_array(PyObject*, PyObject*) { return not_available("create_array"); }
PyObject* create_array_random(PyObject*, PyObject*) { return not_available("create_array_random"); }
PyObject* create_array_ones(PyObject*, PyObject*) { return not_available("create_array_ones"); }
PyObject* create_array_zeros(PyObject*, PyObject*) { return not_available("create_array_zeros"); }
PyObject* create_chirp(PyObject*, PyObject*, PyObject*) { return not_available("create_chirp"); }
PyObject* create_const(PyObject*, PyObject*, PyObject*) { return not_available("create_const"); }
PyObject* create_ramp(PyObject*, PyObject*, PyObject*) { return not_available("create_ramp"); }
PyObject* create_random(PyObject*, PyObject*, PyObject*) { return not_available("create_random"); }
PyObject* create_sine(PyObject*, PyObject*, PyObject*) { return not_available("create_sine"); }
PyObject* create_step(PyObject*, PyObject*, PyObject*) { return not_available("create_step"); }
PyObject* create_mesh_sinc(PyObject*, PyObject*, PyObject*) { return not_available("create_mesh_sinc"); }

}  // namespace mirn2::fn
