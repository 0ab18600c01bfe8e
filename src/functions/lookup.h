// Module functions: lookup tables.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* lut1d(PyObject*, PyObject* args, PyObject* keywords);
PyObject* lut2d(PyObject*, PyObject* args, PyObject* keywords);

}  // namespace mirn2::fn
