// The module's functions: the rows of all families, in their fixed order.
#pragma once

#include <Python.h>

namespace mirn2 {

// The table as the interpreter wants it, with the closing empty row; it lives as long as the process.
PyMethodDef* function_table();

}  // namespace mirn2
