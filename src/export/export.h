// kvalo.export_to_file: series on a regular time grid, as delimited text.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* export_to_file(PyObject*, PyObject* args, PyObject* kwargs);

}  // namespace mirn2::fn
