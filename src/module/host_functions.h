// Module functions that talk to the host.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* callback(PyObject*, PyObject* args);
PyObject* exit(PyObject*, PyObject* args);
PyObject* selfie(PyObject*, PyObject* args, PyObject* kwargs);

}  // namespace mirn2::fn
