#include "functions/insight.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* insight(PyObject*, PyObject*, PyObject*) { return not_available("insight"); }

}  // namespace mirn2::fn
