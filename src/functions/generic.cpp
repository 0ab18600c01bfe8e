// The frame of script functions that make one series from another.
#include "functions/generic.h"

#include "objects/frame.h"
#include "objects/time_series.h"

namespace mirn2::fn {

namespace {

// compute: Operand -> Ref of the result, still without a script.
template <typename Compute>
PyObject* in_frame(PyObject* args, std::string_view name, std::string_view options,
                   const Compute& compute) noexcept {
  return guard(PyExc_ValueError, [&] {
    refuse_online("builtin_generic");
    PyObject* argument = args;
    if (PyTuple_Check(args)) {
      if (PyTuple_GET_SIZE(args) < 1) fail(PyExc_ValueError, "Function takes at least one argument");
      argument = PyTuple_GET_ITEM(args, 0);
    }
    const Operand operand(series_argument(argument));
    Ref result = compute(operand);
    set_script(as_series(result.get()), fmt::format("kvalo.{:s}({:s}{:s}{:s})", name, operand.name(),
                                                    options.empty() ? "" : ", ", options));
    return result.release();
  });
}

}  // namespace

PyObject* builtin_generic(PyObject* args, std::string_view name, std::string_view options,
                          const SeriesKernel& kernel) noexcept {
  return in_frame(args, name, options, [&](const Operand& operand) {
    return result_like(operand, [&](std::span<double> out) { kernel(operand.x(), operand.y(), out); });
  });
}

PyObject* builtin_generic(PyObject* args, std::string_view name, std::string_view options,
                          const ResamplingKernel& kernel) noexcept {
  return in_frame(args, name, options, [&](const Operand& operand) {
    const uint64_t size = without_gil([&] { return kernel.count(operand.x(), operand.y()); });
    Samples x;
    Samples y;
    x.resize_for_overwrite(size);
    y.resize_for_overwrite(size);
    without_gil([&] { kernel.fill(operand.x(), operand.y(), x.span(), y.span()); });
    return make_result(std::move(x), std::move(y));
  });
}

}  // namespace mirn2::fn
