// Module functions on the registry: finding series and containers, and merging a file into the one it fits.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* find(PyObject*, PyObject* args);
PyObject* list(PyObject*, PyObject* args);
PyObject* find_by_ratio(PyObject*, PyObject* args, PyObject* kwargs);
PyObject* merge(PyObject*, PyObject* args, PyObject* kwargs);

}  // namespace mirn2::fn
