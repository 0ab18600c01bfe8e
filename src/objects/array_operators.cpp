// The operators and comparisons of Array.
#include "objects/array_operators.h"

#include <algorithm>

#include "objects/frame.h"
#include "objects/operator_slots.h"

namespace mirn2 {

using kernels::Binary;
using kernels::Function;
using kernels::Operator;
using kernels::Unary;

namespace {

double number_of(PyObject* operand) { return number_argument(operand, "Operand must be a number"); }

// Runs compute(out) on a new Array of that size, without the interpreter lock.
template <typename Compute>
PyObject* new_array(uint64_t size, Compute compute) {
  Samples samples;
  samples.resize_for_overwrite(size);
  without_gil([&] { compute(samples.span()); });
  return make_array(std::move(samples)).release();
}

PyObject* array_with_array(const Samples a, const Samples b, const Binary& f) {
  return new_array(std::max(a.size(), b.size()), [&](std::span<double> out) {
    const uint64_t both = std::min(a.size(), b.size());
    f.vectors(a.span().first(both), b.span().first(both), out.first(both));
    f.vector_number(a.span().subspan(both), 0.0, out.subspan(both, a.size() - both));
    f.number_vector(0.0, b.span().subspan(both), out.subspan(both, b.size() - both));
  });
}

PyObject* in_place_with_number(const ColumnPtr& a, double b, const Binary& f) {
  change_in_place(*a, [&](std::span<const double> y, std::span<double> out) { f.vector_number(y, b, out); });
  return make_array(a->snapshot()).release();
}

// Samples past the end of a shorter operand stay; the result has zeros there.
PyObject* in_place_with_array(const ColumnPtr& a, const Samples other, const Binary& f) {
  const uint64_t both = std::min(a->size(), other.size());
  change_in_place(*a, [&](std::span<const double> y, std::span<double> out) {
    f.vectors(y.first(both), other.span().first(both), out.first(both));
    std::ranges::copy(y.subspan(both), out.subspan(both).begin());
  });
  if (both == a->size()) return make_array(a->snapshot()).release();
  Samples padded = a->hold().clone();
  std::ranges::fill(padded.span().subspan(both), 0.0);
  return make_array(std::move(padded)).release();
}

PyObject* array_inplace(PyObject* a, PyObject* b, Operator which) {
  return guard(PyExc_ValueError, [&]() -> PyObject* {
    const Binary& f = kernels::binary(which);
    // The interpreter would hand NotImplemented of a subclass on to the script as the result.
    if (!is_array_operand(a)) {
      fail(PyExc_TypeError, "Objects of a subclass of kvalo.Array cannot be changed in place by operators");
    }
    if (is_number(b)) return in_place_with_number(as_array(a)->column, number_of(b), f);
    if (is_array_operand(b)) return in_place_with_array(as_array(a)->column, as_array(b)->column->hold(), f);
    Py_RETURN_NOTIMPLEMENTED;
  });
}

PyObject* any_binary(PyObject* a, PyObject* b, Operator which) { return array_binary(a, b, which); }

template <Function which>
PyObject* unary_slot(PyObject* a) {
  return array_unary(a, kernels::unary(which));
}

}  // namespace

bool is_array_operand(PyObject* object) noexcept {
  return as_array(object) != nullptr && type_name(Py_TYPE(object)) == "Array";
}

PyObject* array_binary(PyObject* a, PyObject* b, Operator which) noexcept {
  return guard(PyExc_ValueError, [&]() -> PyObject* {
    const Binary& f = kernels::binary(which);
    if (is_array_operand(a)) {
      const Samples left = as_array(a)->column->hold();
      if (is_array_operand(b)) return array_with_array(left, as_array(b)->column->hold(), f);
      if (is_number(b)) {
        const double right = number_of(b);
        return new_array(left.size(), [&](auto out) { f.vector_number(left.span(), right, out); });
      }
    } else if (is_array_operand(b) && is_number(a)) {
      const double left = number_of(a);
      const Samples right = as_array(b)->column->hold();
      return new_array(right.size(), [&](auto out) { f.number_vector(left, right.span(), out); });
    }
    Py_RETURN_NOTIMPLEMENTED;
  });
}

PyObject* array_unary(PyObject* a, const Unary& f) noexcept {
  return guard(PyExc_ValueError, [&] {
    const Samples samples = as_array(a)->column->hold();
    return new_array(samples.size(), [&](auto out) { f.vector(samples.span(), out); });
  });
}

PyObject* array_richcompare(PyObject* a, PyObject* b, int op) {
  const std::optional<Operator> which = comparison(op);
  if (!which) Py_RETURN_NOTIMPLEMENTED;
  return array_binary(a, b, *which);
}

PyNumberMethods array_number = number_slots<any_binary, array_inplace>(
    unary_slot<Function::negative>, unary_slot<Function::absolute>, unary_slot<Function::invert>);

}  // namespace mirn2
