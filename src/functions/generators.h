// Module functions: synthetic signals, surfaces and arrays.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* create_array(PyObject*, PyObject* args);
PyObject* create_array_random(PyObject*, PyObject* args);
PyObject* create_array_ones(PyObject*, PyObject* args);
PyObject* create_array_zeros(PyObject*, PyObject* args);
PyObject* create_chirp(PyObject*, PyObject* args, PyObject* keywords);
PyObject* create_const(PyObject*, PyObject* args, PyObject* keywords);
PyObject* create_ramp(PyObject*, PyObject* args, PyObject* keywords);
PyObject* create_random(PyObject*, PyObject* args, PyObject* keywords);
PyObject* create_sine(PyObject*, PyObject* args, PyObject* keywords);
PyObject* create_step(PyObject*, PyObject* args, PyObject* keywords);
PyObject* create_mesh_sinc(PyObject*, PyObject* args, PyObject* keywords);

}  // namespace mirn2::fn
