#include "functions/units.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* convert(PyObject*, PyObject*) { return not_available("convert"); }

}  // namespace mirn2::fn
