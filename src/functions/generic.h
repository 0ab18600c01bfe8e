// The frame of the functions that make one series from one other.
//
// They load the series and return a new one, whose creation script is "kvalo.{name}({series}{, }{options})".
// They are refused while a real-time connection is active, with this frame's own name in the text. Kernels
// run without the interpreter lock.
#pragma once

#include <string_view>

#include "objects/row.h"
#include "objects/time_series.h"

namespace mirn2::fn {

inline constexpr Label generic_frame = "builtin_generic";

inline TimeSeriesObject* generic_argument(PyObject* series) {
  refuse_online(generic_frame.text);
  return series_argument(series);
}

// The series of a function that has no options and passes over further arguments.
inline PyObject* first_of(Items items) {
  if (items.empty()) fail(PyExc_ValueError, "Function takes at least one argument");
  return items[0];
}

inline Ref name_after_call(Ref result, std::string_view name, const Operand& operand,
                           std::string_view options) {
  set_script(as_series(result.get()), fmt::format("kvalo.{:s}({:s}{:s}{:s})", name, operand.name(),
                                                  options.empty() ? "" : ", ", options));
  return result;
}

// kernel(t, y, out) fills out from the time stamps and the values; all three have the same size, and the
// result has the same time stamps.
template <typename Kernel>
Ref builtin_generic(PyObject* series, std::string_view name, std::string_view options, const Kernel& kernel) {
  const Operand operand(generic_argument(series));
  return name_after_call(
      result_like(operand, [&](std::span<double> out) { kernel(operand.x(), operand.y(), out); }), name,
      operand, options);
}

// A computation whose result has time stamps of its own: count(t, y) says how many samples there will be,
// then fill(t, y, x_out, y_out) writes all of them.
template <typename Count, typename Fill>
Ref builtin_resampling(PyObject* series, std::string_view name, std::string_view options, const Count& count,
                       const Fill& fill) {
  const Operand operand(generic_argument(series));
  const uint64_t size = without_gil([&] { return count(operand.x(), operand.y()); });
  Samples x;
  Samples y;
  x.resize_for_overwrite(size);
  y.resize_for_overwrite(size);
  without_gil([&] { fill(operand.x(), operand.y(), x.span(), y.span()); });
  return name_after_call(make_result(std::move(x), std::move(y)), name, operand, options);
}

}  // namespace mirn2::fn
