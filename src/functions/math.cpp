// Module functions: elementary functions of every value.
#include "functions/families.h"
#include "objects/array_operators.h"
#include "objects/series_operators.h"

namespace mirn2::fn {

namespace {

using kernels::Function;

template <Function which>
PyObject* common_unary(PyObject* values) {
  const kernels::Unary& f = kernels::unary(which);
  if (is_array_operand(values)) return array_unary(values, f);
  if (is_series_operand(values)) return unary_op(as_series(values), f);
  fail(PyExc_TypeError, "Argument must be either kvalo.Array or kvalo.TimeSeries");
}

template <Name name, Name doc, Function which>
PyMethodDef math_row() {
  return row<name, "(values, /)", "O", doc, common_unary<which>,
             Frame{.online = "common_unary", .counted = "common_unary"}>();
}

}  // namespace

Rows math_rows() {
  static const PyMethodDef rows[] = {
      math_row<"cos", "Cosine (radians)", Function::cosine>(),
      math_row<"sin", "Sine (radians)", Function::sine>(),
      math_row<"tan", "Tangent (radians)", Function::tangent>(),
      math_row<"cosd", "Cosine (degrees)", Function::cosine_degrees>(),
      math_row<"sind", "Sine (degrees)", Function::sine_degrees>(),
      math_row<"tand", "Tangent (degrees)", Function::tangent_degrees>(),
      math_row<"acos", "Arc cosine (radians)", Function::arc_cosine>(),
      math_row<"asin", "Arc sine (radians)", Function::arc_sine>(),
      math_row<"atan", "Arc tangent (radians)", Function::arc_tangent>(),
      math_row<"acosd", "Arc cosine (degrees)", Function::arc_cosine_degrees>(),
      math_row<"asind", "Arc sine (degrees)", Function::arc_sine_degrees>(),
      math_row<"atand", "Arc tangent (degrees)", Function::arc_tangent_degrees>(),
      math_row<"ceil", "Computes the smallest integer value not less than argument", Function::ceiling>(),
      math_row<"floor", "Computes the largest integer value not greater than argument", Function::floor>(),
      math_row<"round",
               "Computes the nearest integer value to arg (in floating-point format), rounding halfway cases "
               "away from zero",
               Function::round>(),
      math_row<"trunc", "Computes the nearest integer not greater in magnitude than the argument",
               Function::truncate>(),
      math_row<"exp", "Power of base e", Function::exponential>(),
      math_row<"sqrt", "Square root", Function::square_root>(),
      math_row<"log", "Natural logarithm (base e)", Function::logarithm>(),
      math_row<"log10", "Logarithm of base 10", Function::logarithm_10>(),
  };
  return rows;
}

}  // namespace mirn2::fn
