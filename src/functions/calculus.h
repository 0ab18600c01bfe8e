// Module functions: calculus and per-sample rates.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* derivative(PyObject*, PyObject* args);
PyObject* integral(PyObject*, PyObject* args);
PyObject* diff(PyObject*, PyObject* args);
PyObject* accumulate(PyObject*, PyObject* args);
PyObject* estimate_sampling_frequency(PyObject*, PyObject* args);
PyObject* estimate_sampling_period(PyObject*, PyObject* args);

}  // namespace mirn2::fn
