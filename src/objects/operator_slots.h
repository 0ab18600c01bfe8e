// Which operator fills which slot of the interpreter's number protocol, for both types that have one.
#pragma once

#include <Python.h>

#include <optional>

#include "kernels/elements.h"

namespace mirn2 {

using OperatorRoutine = PyObject*(PyObject* a, PyObject* b, kernels::Operator which);

namespace slots {

template <OperatorRoutine routine, kernels::Operator which>
PyObject* binary(PyObject* a, PyObject* b) {
  return routine(a, b, which);
}
// The third operand, a modulus, is ignored.
template <OperatorRoutine routine, kernels::Operator which>
PyObject* ternary(PyObject* a, PyObject* b, PyObject*) {
  return routine(a, b, which);
}

}  // namespace slots

// The number protocol whose binary operators call `plain` and whose in-place ones call `in_place`.
template <OperatorRoutine plain, OperatorRoutine in_place>
constexpr PyNumberMethods number_slots(unaryfunc negative, unaryfunc absolute, unaryfunc invert) {
  using enum kernels::Operator;
  return {
      .nb_add = slots::binary<plain, add>,
      .nb_subtract = slots::binary<plain, subtract>,
      .nb_multiply = slots::binary<plain, multiply>,
      .nb_remainder = slots::binary<plain, remainder>,
      .nb_power = slots::ternary<plain, power>,
      .nb_negative = negative,
      .nb_absolute = absolute,
      .nb_invert = invert,
      .nb_and = slots::binary<plain, conjunction>,
      .nb_xor = slots::binary<plain, exclusive>,
      .nb_or = slots::binary<plain, disjunction>,
      .nb_inplace_add = slots::binary<in_place, add>,
      .nb_inplace_subtract = slots::binary<in_place, subtract>,
      .nb_inplace_multiply = slots::binary<in_place, multiply>,
      .nb_inplace_remainder = slots::binary<in_place, remainder>,
      .nb_inplace_power = slots::ternary<in_place, power>,
      .nb_inplace_and = slots::binary<in_place, conjunction>,
      .nb_inplace_xor = slots::binary<in_place, exclusive>,
      .nb_inplace_or = slots::binary<in_place, disjunction>,
      .nb_true_divide = slots::binary<plain, divide>,
      .nb_inplace_true_divide = slots::binary<in_place, divide>,
  };
}

// The operator of a rich comparison's code.
constexpr std::optional<kernels::Operator> comparison(int op) {
  using enum kernels::Operator;
  switch (op) {
    case Py_LT:
      return less;
    case Py_LE:
      return less_equal;
    case Py_EQ:
      return equal;
    case Py_NE:
      return not_equal;
    case Py_GT:
      return greater;
    case Py_GE:
      return greater_equal;
    default:
      return std::nullopt;
  }
}

}  // namespace mirn2
