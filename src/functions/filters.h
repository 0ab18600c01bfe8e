// Module functions: first-order filters.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* lowpass(PyObject*, PyObject* args, PyObject* keywords);
PyObject* highpass(PyObject*, PyObject* args, PyObject* keywords);

}  // namespace mirn2::fn
