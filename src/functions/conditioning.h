// Module functions: logic conditioning and value shaping of one series.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* clamp(PyObject*, PyObject* args, PyObject* keywords);
PyObject* debounce(PyObject*, PyObject* args, PyObject* keywords);
PyObject* drop(PyObject*, PyObject* args, PyObject* keywords);
PyObject* hysteresis(PyObject*, PyObject* args, PyObject* keywords);
PyObject* in_range(PyObject*, PyObject* args, PyObject* keywords);
PyObject* lerp(PyObject*, PyObject* args, PyObject* keywords);
PyObject* stale(PyObject*, PyObject* args, PyObject* keywords);
PyObject* unpack(PyObject*, PyObject* args, PyObject* keywords);

}  // namespace mirn2::fn
