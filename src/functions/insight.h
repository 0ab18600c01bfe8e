// Module function: what happened before an event.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* insight(PyObject*, PyObject* args, PyObject* keywords);

}  // namespace mirn2::fn
