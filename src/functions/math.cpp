#include "functions/math.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* cos(PyObject*, PyObject*) { return not_available("cos"); }
PyObject* sin(PyObject*, PyObject*) { return not_available("sin"); }
PyObject* tan(PyObject*, PyObject*) { return not_available("tan"); }
PyObject* cosd(PyObject*, PyObject*) { return not_available("cosd"); }
PyObject* sind(PyObject*, PyObject*) { return not_available("sind"); }
PyObject* tand(PyObject*, PyObject*) { return not_available("tand"); }
PyObject* acos(PyObject*, PyObject*) { return not_available("acos"); }
PyObject* asin(PyObject*, PyObject*) { return not_available("asin"); }
PyObject* atan(PyObject*, PyObject*) { return not_available("atan"); }
PyObject* acosd(PyObject*, PyObject*) { return not_available("acosd"); }
PyObject* asind(PyObject*, PyObject*) { return not_available("asind"); }
PyObject* atand(PyObject*, PyObject*) { return not_available("atand"); }
PyObject* ceil(PyObject*, PyObject*) { return not_available("ceil"); }
PyObject* floor(PyObject*, PyObject*) { return not_available("floor"); }
PyObject* round(PyObject*, PyObject*) { return not_available("round"); }
PyObject* trunc(PyObject*, PyObject*) { return not_available("trunc"); }
PyObject* exp(PyObject*, PyObject*) { return not_available("exp"); }
PyObject* sqrt(PyObject*, PyObject*) { return not_available("sqrt"); }
PyObject* log(PyObject*, PyObject*) { return not_available("log"); }
PyObject* log10(PyObject*, PyObject*) { return not_available("log10"); }

}  // namespace mirn2::fn
