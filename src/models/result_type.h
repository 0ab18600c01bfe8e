// kvalo.Result: what a simulation leaves for the script, as attributes.
#pragma once

#include <Python.h>

namespace mirn2 {

extern PyTypeObject ResultType;

}  // namespace mirn2
