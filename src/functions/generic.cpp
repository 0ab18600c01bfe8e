#include "functions/generic.h"

#include "objects/frame.h"
#include "objects/time_series.h"

namespace mirn2::fn {

PyObject* builtin_generic(PyObject* args, std::string_view name, std::string_view options,
                          const SeriesKernel& kernel) noexcept {
  return guard(PyExc_ValueError, [&] {
    refuse_online("builtin_generic");
    PyObject* argument = args;
    if (PyTuple_Check(args)) {
      if (PyTuple_GET_SIZE(args) < 1) fail(PyExc_ValueError, "Function takes at least one argument");
      argument = PyTuple_GET_ITEM(args, 0);
    }
    const Operand operand(series_argument(argument));
    Ref result = result_like(operand, [&](std::span<double> out) { kernel(operand.x(), operand.y(), out); });
    set_script(as_series(result.get()), fmt::format("kvalo.{:s}({:s}{:s}{:s})", name, operand.name(),
                                                    options.empty() ? "" : ", ", options));
    return result.release();
  });
}

}  // namespace mirn2::fn
