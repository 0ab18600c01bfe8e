// Module functions: elementary functions of every value.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* cos(PyObject*, PyObject* args);
PyObject* sin(PyObject*, PyObject* args);
PyObject* tan(PyObject*, PyObject* args);
PyObject* cosd(PyObject*, PyObject* args);
PyObject* sind(PyObject*, PyObject* args);
PyObject* tand(PyObject*, PyObject* args);
PyObject* acos(PyObject*, PyObject* args);
PyObject* asin(PyObject*, PyObject* args);
PyObject* atan(PyObject*, PyObject* args);
PyObject* acosd(PyObject*, PyObject* args);
PyObject* asind(PyObject*, PyObject* args);
PyObject* atand(PyObject*, PyObject* args);
PyObject* ceil(PyObject*, PyObject* args);
PyObject* floor(PyObject*, PyObject* args);
PyObject* round(PyObject*, PyObject* args);
PyObject* trunc(PyObject*, PyObject* args);
PyObject* exp(PyObject*, PyObject* args);
PyObject* sqrt(PyObject*, PyObject* args);
PyObject* log(PyObject*, PyObject* args);
PyObject* log10(PyObject*, PyObject* args);

}  // namespace mirn2::fn
