// Script functions that filter one series.
#include "functions/filters.h"

#include "functions/generic.h"
#include "kernels/filters.h"
#include "kernels/sampling.h"
#include "objects/frame.h"

namespace mirn2::fn {

namespace {

using Filter = void (*)(kernels::Axis y, kernels::FirstOrder filter, kernels::Result out);

PyObject* filtered(PyObject* args, PyObject* keywords, const char* format, std::string_view name,
                   Filter filter) noexcept {
  return guard(PyExc_ValueError, [&] {
    static const char* names[] = {"", "tau", nullptr};
    PyObject* series = nullptr;
    double tau = 0.0;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, format, const_cast<char**>(names), &series, &tau)) {
      throw python_error();
    }
    return builtin_generic(args, name, fmt::format("tau={:g}", tau),
                           [=](kernels::Axis t, kernels::Axis y, kernels::Result out) {
                             const double dt = t.size() < 2 ? 0.0 : mirn2::kernels::representative_period(t);
                             filter(y, {dt, tau}, out);
                           });
  });
}

}  // namespace

PyObject* lowpass(PyObject*, PyObject* args, PyObject* keywords) {
  return filtered(args, keywords, "Od:lowpass", "lowpass", kernels::lowpass);
}

PyObject* highpass(PyObject*, PyObject* args, PyObject* keywords) {
  return filtered(args, keywords, "Od:highpass", "highpass", kernels::highpass);
}

}  // namespace mirn2::fn
