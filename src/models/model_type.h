// kvalo.Model: a block diagram that a script builds, checks, simulates and turns into code.
#pragma once

#include <Python.h>

namespace mirn2 {

extern PyTypeObject ModelType;

}  // namespace mirn2
