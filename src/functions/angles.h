// Module functions: angles.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* angular_distance(PyObject*, PyObject* args, PyObject* keywords);

}  // namespace mirn2::fn
