#include "functions/fits.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* fit_linear(PyObject*, PyObject*) { return not_available("fit_linear"); }
PyObject* fit_exp(PyObject*, PyObject*) { return not_available("fit_exp"); }
PyObject* fit_polynomial(PyObject*, PyObject*) { return not_available("fit_polynomial"); }

}  // namespace mirn2::fn
