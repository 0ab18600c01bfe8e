// Module functions on the registry and on container creation.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* find(PyObject*, PyObject* args);
PyObject* list(PyObject*, PyObject* args);
PyObject* find_by_ratio(PyObject*, PyObject* args, PyObject* kwargs);
PyObject* merge(PyObject*, PyObject* args, PyObject* kwargs);

}  // namespace mirn2::fn
