// The module's functions: one row each, in their fixed order.
#pragma once

#include <Python.h>

namespace mirn2 {

// 98 rows and the closing empty one.
extern PyMethodDef function_table[];

}  // namespace mirn2
