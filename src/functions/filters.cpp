// Module functions: first-order filters.
#include "kernels/filters.h"

#include "functions/families.h"
#include "functions/generic.h"
#include "kernels/sampling.h"

namespace mirn2::fn {

namespace {

template <Name name, auto filter>
Ref filtered(PyObject* series, double tau) {
  return builtin_generic(series, name.text, fmt::format("tau={:g}", tau),
                         [&](kernels::Axis t, kernels::Axis y, kernels::Result out) {
                           const double dt = t.size() < 2 ? 0.0 : kernels::representative_period(t);
                           filter(y, {dt, tau}, out);
                         });
}

}  // namespace

Rows filter_rows() {
  static const PyMethodDef rows[] = {
      row<"lowpass", "(series, /, tau)", "Od", "Low-pass filter", filtered<"lowpass", kernels::lowpass>>(),
      row<"highpass", "(series, /, tau)", "Od", "High-pass filter",
          filtered<"highpass", kernels::highpass>>(),
  };
  return rows;
}

}  // namespace mirn2::fn
