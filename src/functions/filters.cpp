#include "functions/filters.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* lowpass(PyObject*, PyObject*, PyObject*) { return not_available("lowpass"); }
PyObject* highpass(PyObject*, PyObject*, PyObject*) { return not_available("highpass"); }

}  // namespace mirn2::fn
