// Module function: a container from the text on the clipboard.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* create_from_clipboard(PyObject*, PyObject* args);

}  // namespace mirn2::fn
