// The types that this version publishes by name only: making one raises NotImplementedError.
#pragma once

#include <Python.h>

namespace mirn2 {

extern PyTypeObject ModelType;
extern PyTypeObject ResultType;

}  // namespace mirn2
