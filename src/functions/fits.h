// Module functions: least-squares fits.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* fit_linear(PyObject*, PyObject* args);
PyObject* fit_exp(PyObject*, PyObject* args);
PyObject* fit_polynomial(PyObject*, PyObject* args);

}  // namespace mirn2::fn
