// Module functions: least-squares fits, which return their coefficients and print the formula.
#include "functions/families.h"
#include "objects/time_series.h"
#include "runtime/dsp_fit.h"
#include "runtime/log.h"
#include "runtime/python.h"

namespace mirn2::fn {

namespace {

using mirn3::dsp::fit_t;

// (r, coefficients...); the formula goes to the log and to the script's output first.
PyObject* fit_result(const fit_t& fit, const std::string& formula) {
  const auto count = static_cast<Py_ssize_t>(fit.coefficients.size());
  Ref result = checked(PyTuple_New(count + 1));
  PyTuple_SET_ITEM(result.get(), 0, checked(PyFloat_FromDouble(fit.r)).release());
  for (Py_ssize_t k = 0; k < count; ++k) {
    Ref value = checked(PyFloat_FromDouble(fit.coefficients[static_cast<size_t>(k)]));
    PyTuple_SET_ITEM(result.get(), k + 1, value.release());
  }
  mirn3::log::write(mirn3::log::warning, formula);
  mirn3::python::print_line(formula);
  check_python();  // a replaced sys.stdout may raise
  return result.release();
}

// The fits with two coefficients; `formula` takes them and r.
template <auto fit, Name formula>
PyObject* fit_two(PyObject* argument) {
  const Operand series(series_argument(argument));
  const fit_t found = without_gil([&] { return fit(series.x().data(), series.y().data(), series.size()); });
  const double a = found.coefficients[0];
  const double b = found.coefficients[1];
  return fit_result(found, fmt::format(fmt::runtime(formula.text), a, b, found.r));
}

PyObject* fit_polynomial(PyObject* argument, PyObject* order_argument) {
  TimeSeriesObject* series_of_argument = series_argument(argument);
  const size_t order = PyLong_AsSize_t(order_argument);
  if (PyErr_Occurred() != nullptr) {
    // Negative, or beyond the type: an order all the same, and out of bounds.
    if (!PyErr_ExceptionMatches(PyExc_OverflowError)) throw python_error();
    PyErr_Clear();
  }
  if (order < 2 || order > 9) fail(PyExc_ValueError, "Order must be greater than 1 and less than 10");
  const Operand series(series_of_argument);
  const fit_t fit = without_gil(
      [&] { return mirn3::dsp::fit_pol(series.x().data(), series.y().data(), series.size(), order); });

  std::string formula = fmt::format("Y = {:g}", fit.coefficients[0]);
  for (size_t k = 1; k <= order; ++k) formula += fmt::format(" + {:g} * X^{:d}", fit.coefficients[k], k);
  return fit_result(fit, formula + fmt::format(", r = {:g}", fit.r));
}

}  // namespace

Rows fit_rows() {
  static const PyMethodDef rows[] = {
      row<"fit_linear", "(series, /)", "O", "Linear curve fit: Y = A*X + B",
          fit_two<mirn3::dsp::fit_lin, "Y = {:g} * X + {:g}, r = {:g}">,
          Frame{.trace = "fit_linear", .counted = "fit_linear"}>(),
      row<"fit_exp", "(series, /)", "O", "Exponential curve fit: Y = A * exp(B*X)",
          fit_two<mirn3::dsp::fit_exp, "Y = {:g} * exp({:g} * X), r = {:g}">,
          Frame{.trace = "fit_exp", .counted = "fit_exp"}>(),
      row<"fit_polynomial", "(series, order, /)", "OO",
          "Polynomial curve fit: Y = B0 + B1*X + B2*X^2 + ...  + Bn*X^n", fit_polynomial,
          Frame{.trace = "fit_polynomial", .counted = "fit_polynomial"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
