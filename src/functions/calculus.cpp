// Module functions: calculus and per-sample rates.
#include "kernels/calculus.h"

#include "functions/families.h"
#include "functions/generic.h"

namespace mirn2::fn {

namespace {

template <Name name, auto kernel>
Ref without_options(Items items) {
  return builtin_generic(first_of(items), name.text, "", kernel);
}

// The row of such a function.
template <Name name, Name doc, auto kernel>
PyMethodDef plain_row() {
  return row<name, "(series, /)", "*", doc, without_options<name, kernel>, Frame{.online = generic_frame}>();
}

}  // namespace

Rows calculus_rows() {
  static const PyMethodDef rows[] = {
      plain_row<"derivative", "Discrete derivative", kernels::derivative>(),
      plain_row<"integral",
                "Discrete integration (numerical quadrature), calculated using the trapezoidal rule",
                kernels::integral>(),
      plain_row<"diff", "Differences between adjacent elements", kernels::difference>(),
      plain_row<"accumulate", "The nth element is the sum of the 1...n elements of the argument",
                kernels::accumulate>(),
  };
  return rows;
}

Rows sampling_rows() {
  static const PyMethodDef rows[] = {
      plain_row<"estimate_sampling_frequency", "Estimate each sample frequency", kernels::frequency>(),
      plain_row<"estimate_sampling_period", "Estimate each sample period", kernels::period>(),
  };
  return rows;
}

}  // namespace mirn2::fn
