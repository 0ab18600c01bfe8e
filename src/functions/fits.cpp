// Module functions: least-squares fits, which return their coefficients and print the formula.
#include "functions/fits.h"

#include "objects/frame.h"
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

using Fit = fit_t (*)(const double* x, const double* y, size_t n);

// The fits with two coefficients; `formula` takes them and r.
PyObject* fit_two(PyObject* args, const char* name, Fit fit, const char* formula) {
  return guard(PyExc_ValueError, [&] {
    const Trace trace(name);
    require_count(args, 1, name);
    const Operand series(series_argument(PyTuple_GET_ITEM(args, 0)));
    const fit_t found = without_gil([&] { return fit(series.x().data(), series.y().data(), series.size()); });
    const double a = found.coefficients[0];
    const double b = found.coefficients[1];
    return fit_result(found, fmt::format(fmt::runtime(formula), a, b, found.r));
  });
}

}  // namespace

PyObject* fit_linear(PyObject*, PyObject* args) {
  return fit_two(args, "fit_linear", mirn3::dsp::fit_lin, "Y = {:g} * X + {:g}, r = {:g}");
}

PyObject* fit_exp(PyObject*, PyObject* args) {
  return fit_two(args, "fit_exp", mirn3::dsp::fit_exp, "Y = {:g} * exp({:g} * X), r = {:g}");
}

PyObject* fit_polynomial(PyObject*, PyObject* args) {
  return guard(PyExc_ValueError, [&] {
    const Trace trace("fit_polynomial");
    require_count(args, 2, "fit_polynomial");
    TimeSeriesObject* argument = series_argument(PyTuple_GET_ITEM(args, 0));
    const size_t order = PyLong_AsSize_t(PyTuple_GET_ITEM(args, 1));
    if (PyErr_Occurred() != nullptr) {
      // Negative, or beyond the type: an order all the same, and out of bounds.
      if (!PyErr_ExceptionMatches(PyExc_OverflowError)) throw python_error();
      PyErr_Clear();
    }
    if (order < 2 || order > 9) fail(PyExc_ValueError, "Order must be greater than 1 and less than 10");
    const Operand series(argument);
    const fit_t fit = without_gil(
        [&] { return mirn3::dsp::fit_pol(series.x().data(), series.y().data(), series.size(), order); });

    std::string formula = fmt::format("Y = {:g}", fit.coefficients[0]);
    for (size_t k = 1; k <= order; ++k) formula += fmt::format(" + {:g} * X^{:d}", fit.coefficients[k], k);
    return fit_result(fit, formula + fmt::format(", r = {:g}", fit.r));
  });
}

}  // namespace mirn2::fn
