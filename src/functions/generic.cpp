#include "functions/generic.h"

#include <cstring>

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
    Ref result = make_result(operand.size());
    TimeSeriesObject* series = as_series(result.get());
    set_script(series, fmt::format("kvalo.{:s}({:s}{:s}{:s})", name, operand.name(),
                                   options.empty() ? "" : ", ", options));
    // Shares of their own: the result is registered, so another thread may find and change it.
    Samples x = *axis_of(series->xdata);
    Samples y = *axis_of(series->ydata);
    without_gil([&] {
      if (operand.size() != 0) std::memcpy(x.data(), operand.x().data(), operand.size() * sizeof(double));
      kernel(operand.x(), operand.y(), y.span());
    });
    return result.release();
  });
}

}  // namespace mirn2::fn
