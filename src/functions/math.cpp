// Script functions that apply an elementary function to every value.
#include "functions/math.h"

#include "objects/array_operators.h"
#include "objects/frame.h"
#include "objects/series_operators.h"

namespace mirn2::fn {

namespace {

PyObject* common_unary(PyObject* args, kernels::Function which) {
  return guard(PyExc_ValueError, [&]() -> PyObject* {
    refuse_online("common_unary");
    require_count(args, 1, "common_unary");
    PyObject* argument = PyTuple_GET_ITEM(args, 0);
    const kernels::Unary& f = kernels::unary(which);
    if (is_array_operand(argument)) return array_unary(argument, f);
    if (is_series_operand(argument)) return unary_op(as_series(argument), f);
    fail(PyExc_TypeError, "Argument must be either kvalo.Array or kvalo.TimeSeries");
  });
}

}  // namespace

using kernels::Function;

PyObject* cos(PyObject*, PyObject* args) { return common_unary(args, Function::cosine); }
PyObject* sin(PyObject*, PyObject* args) { return common_unary(args, Function::sine); }
PyObject* tan(PyObject*, PyObject* args) { return common_unary(args, Function::tangent); }
PyObject* cosd(PyObject*, PyObject* args) { return common_unary(args, Function::cosine_degrees); }
PyObject* sind(PyObject*, PyObject* args) { return common_unary(args, Function::sine_degrees); }
PyObject* tand(PyObject*, PyObject* args) { return common_unary(args, Function::tangent_degrees); }
PyObject* acos(PyObject*, PyObject* args) { return common_unary(args, Function::arc_cosine); }
PyObject* asin(PyObject*, PyObject* args) { return common_unary(args, Function::arc_sine); }
PyObject* atan(PyObject*, PyObject* args) { return common_unary(args, Function::arc_tangent); }
PyObject* acosd(PyObject*, PyObject* args) { return common_unary(args, Function::arc_cosine_degrees); }
PyObject* asind(PyObject*, PyObject* args) { return common_unary(args, Function::arc_sine_degrees); }
PyObject* atand(PyObject*, PyObject* args) { return common_unary(args, Function::arc_tangent_degrees); }
PyObject* ceil(PyObject*, PyObject* args) { return common_unary(args, Function::ceiling); }
PyObject* floor(PyObject*, PyObject* args) { return common_unary(args, Function::floor); }
PyObject* round(PyObject*, PyObject* args) { return common_unary(args, Function::round); }
PyObject* trunc(PyObject*, PyObject* args) { return common_unary(args, Function::truncate); }
PyObject* exp(PyObject*, PyObject* args) { return common_unary(args, Function::exponential); }
PyObject* sqrt(PyObject*, PyObject* args) { return common_unary(args, Function::square_root); }
PyObject* log(PyObject*, PyObject* args) { return common_unary(args, Function::logarithm); }
PyObject* log10(PyObject*, PyObject* args) { return common_unary(args, Function::logarithm_10); }

}  // namespace mirn2::fn
