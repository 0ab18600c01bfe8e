// Module functions: persistent settings, and those that belong to the host's window.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* get_config(PyObject*, PyObject* args, PyObject* keywords);
PyObject* set_config(PyObject*, PyObject* args, PyObject* keywords);

}  // namespace mirn2::fn
