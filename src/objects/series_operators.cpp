// The operators and comparisons of TimeSeries.
#include "objects/series_operators.h"

#include "objects/frame.h"
#include "objects/operator_slots.h"
#include "runtime/num_merge.h"

namespace mirn2 {

using kernels::Binary;
using kernels::Function;
using kernels::Operator;
using kernels::Unary;
using kernels::Values;

namespace {

constexpr const char* not_a_number = "Operand must be a number";

double number_of(PyObject* operand) { return number_argument(operand, not_a_number); }

PyObject* finish(Ref result, const std::string& script) {
  set_script(as_series(result.get()), script);
  return result.release();
}

PyObject* series_with_series(TimeSeriesObject* a, TimeSeriesObject* b, const Binary& f) {
  return finish(combine(a, b, f), fmt::format("({:s}) {:s} ({:s})", a->script, f.symbol, b->script));
}

PyObject* series_with_number(TimeSeriesObject* a, double b, const Binary& f) {
  const Operand operand(a);
  return finish(result_like(operand, [&](auto out) { f.vector_number(operand.y(), b, out); }),
                fmt::format("({:s}) {:s} {:f}", a->script, f.symbol, b));
}

PyObject* number_with_series(double a, TimeSeriesObject* b, const Binary& f) {
  const Operand operand(b);
  return finish(result_like(operand, [&](auto out) { f.number_vector(a, operand.y(), out); }),
                fmt::format("{:f} {:s} ({:s})", a, f.symbol, b->script));
}

// Operands of one table show one time vector, so most often there is nothing to compare.
bool have_same_time(const Operand& a, const Operand& b) {
  if (a.size() != b.size()) return false;
  return a.x().data() == b.x().data() || without_gil([&] { return mirn3::num::is_same(a.x(), b.x()); });
}

PyObject* binary_op(PyObject* a, PyObject* b, Operator which, std::string_view name = "binary_op") {
  return guard(PyExc_Exception, [&]() -> PyObject* {
    const Trace trace("binary_op");
    refuse_online(name);
    const Binary& f = kernels::binary(which);
    if (is_series_operand(a)) {
      if (is_number(b)) return series_with_number(as_series(a), number_of(b), f);
      if (is_series_operand(b)) return series_with_series(as_series(a), as_series(b), f);
    } else if (is_series_operand(b) && is_number(a)) {
      return number_with_series(number_of(a), as_series(b), f);
    }
    Py_RETURN_NOTIMPLEMENTED;
  });
}

// Changes the series' own values, which everything that shows it sees. The result has the same samples.
template <typename Compute>
Ref compute_in_place(TimeSeriesObject* a, Compute compute) {
  const InUse in_use(a->source != nullptr ? *a->source : nullptr);
  const ColumnPtr x = as_array(a->xdata)->column;
  const ColumnPtr y = as_array(a->ydata)->column;
  change_in_place(*y, compute);
  return make_result(x->snapshot(), y->snapshot());
}

PyObject* in_place_with_number(TimeSeriesObject* a, double b, const Binary& f) {
  (void)Operand(a);  // loads, and refuses what is not a whole series
  return finish(compute_in_place(a, [&](Values y, auto out) { f.vector_number(y, b, out); }),
                fmt::format("{:s} {:s} {:f}", a->script, f.symbol, b));
}

PyObject* in_place_with_series(TimeSeriesObject* a, TimeSeriesObject* b, const Binary& f) {
  (void)Operand(a);  // loads, and refuses what is not a whole series
  const Operand other(b);
  const uint64_t size = Operand(a).size();
  if (other.size() < size) {
    fail(PyExc_ValueError,
         "An in-place operation goes sample by sample, and '{:s}' has {} samples for the {} of '{:s}'; "
         "write a = a {:s} b to combine by time",
         other.name(), other.size(), size, name_of(a), f.symbol);
  }
  return finish(
      compute_in_place(a, [&](Values y, auto out) { f.vectors(y, other.y().first(y.size()), out); }),
      fmt::format("{:s} {:s} ({:s})", a->script, f.symbol, b->script));
}

PyObject* inplace_op(PyObject* a, PyObject* b, Operator which) {
  return guard(PyExc_Exception, [&]() -> PyObject* {
    const Trace trace("binary_inplace_op");
    refuse_online("binary_inplace_op");
    const Binary& f = kernels::binary(which);
    // The interpreter would hand NotImplemented of a subclass on to the script as the result.
    if (!is_series_operand(a)) {
      fail(PyExc_TypeError,
           "Objects of a subclass of kvalo.TimeSeries cannot be changed in place by operators");
    }
    if (is_number(b)) return in_place_with_number(as_series(a), number_of(b), f);
    if (is_series_operand(b)) return in_place_with_series(as_series(a), as_series(b), f);
    Py_RETURN_NOTIMPLEMENTED;
  });
}

template <Function which>
PyObject* unary_slot(PyObject* a) {
  if (!is_series_operand(a)) Py_RETURN_NOTIMPLEMENTED;
  return unary_op(as_series(a), kernels::unary(which));
}

PyObject* any_binary(PyObject* a, PyObject* b, Operator which) { return binary_op(a, b, which); }

}  // namespace

bool is_series_operand(PyObject* object) noexcept {
  return as_series(object) != nullptr && type_name(Py_TYPE(object)) == "TimeSeries";
}

Ref combine(TimeSeriesObject* a, TimeSeriesObject* b, const Binary& f) {
  refuse_online("binary_op");
  const Operand first(a);
  const Operand second(b);
  namespace num = mirn3::num;
  const bool strict = first.has_ascending_time() && second.has_ascending_time();
  if (strict && have_same_time(first, second)) {
    return result_like(first, [&](auto out) { f.vectors(first.y(), second.y(), out); });
  }
  Samples t;
  Samples y;
  without_gil([&] {
    const kernels::Series left{first.x(), first.y(), strict || num::is_ascending(first.x())};
    const kernels::Series right{second.x(), second.y(), strict || num::is_ascending(second.x())};
    if (strict) {
      const uint64_t most = first.size() + second.size();
      t.resize_for_overwrite(most);
      y.resize_for_overwrite(most);
      const size_t size = f.merged(left, right, t.span(), y.span());
      t.resize(size);
      y.resize(size);
      // Many common stamps: rather copied once more than room held for twice as many samples.
      if (size < most - most / 8) t = t.clone();
      if (size < most - most / 8) y = y.clone();
    } else {
      t = num::merge(left.x.data(), right.x.data(), left.x.size(), right.x.size());
      y.resize_for_overwrite(t.size());
      f.held(left, right, t.span(), y.span());
    }
  });
  return make_result(std::move(t), std::move(y));
}

PyObject* unary_op(TimeSeriesObject* a, const Unary& f) noexcept {
  return guard(PyExc_Exception, [&] {
    const Trace trace("unary_op");
    refuse_online("unary_op");
    const Operand operand(a);
    return finish(result_like(operand, [&](auto out) { f.vector(operand.y(), out); }),
                  fmt::format("{:s}({:s})", f.label, a->script));
  });
}

PyObject* series_richcompare(PyObject* a, PyObject* b, int op) {
  const std::optional<Operator> which = comparison(op);
  if (!which) Py_RETURN_NOTIMPLEMENTED;
  return binary_op(a, b, *which, "tp_richcompare");
}

PyNumberMethods series_number = number_slots<any_binary, inplace_op>(
    unary_slot<Function::negative>, unary_slot<Function::absolute>, unary_slot<Function::invert>);

}  // namespace mirn2
