#include "functions/angles.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* angular_distance(PyObject*, PyObject*, PyObject*) { return not_available("angular_distance"); }

}  // namespace mirn2::fn
