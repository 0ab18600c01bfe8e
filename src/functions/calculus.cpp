// Script functions of calculus and per-sample rates.
#include "functions/calculus.h"

#include "functions/generic.h"
#include "kernels/calculus.h"

namespace mirn2::fn {

PyObject* derivative(PyObject*, PyObject* args) {
  return builtin_generic(args, "derivative", "", kernels::derivative);
}
PyObject* integral(PyObject*, PyObject* args) {
  return builtin_generic(args, "integral", "", kernels::integral);
}
PyObject* diff(PyObject*, PyObject* args) { return builtin_generic(args, "diff", "", kernels::difference); }
PyObject* accumulate(PyObject*, PyObject* args) {
  return builtin_generic(args, "accumulate", "", kernels::accumulate);
}
PyObject* estimate_sampling_frequency(PyObject*, PyObject* args) {
  return builtin_generic(args, "estimate_sampling_frequency", "", kernels::frequency);
}
PyObject* estimate_sampling_period(PyObject*, PyObject* args) {
  return builtin_generic(args, "estimate_sampling_period", "", kernels::period);
}

}  // namespace mirn2::fn
