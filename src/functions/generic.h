// The frame of the functions that make one series from one other.
#pragma once

#include <Python.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

namespace mirn2::fn {

// Fills out from the time stamps and the values; all three have the same size.
using SeriesKernel =
    std::function<void(std::span<const double> t, std::span<const double> y, std::span<double> out)>;

// Takes the series from `args` (a tuple's first item, or the series itself), loads it, and returns a
// new TimeSeries with its time stamps and the kernel's values. The result's creation script
// is "kvalo.{name}({series}{, }{options})". Refused while a real-time connection is active, with this
// frame's own name in the text. The kernel runs without the interpreter lock.
PyObject* builtin_generic(PyObject* args, std::string_view name, std::string_view options,
                          const SeriesKernel& kernel) noexcept;

// A computation whose result has time stamps of its own: `count` says how many samples there will be, then
// `fill` writes all of them.
struct ResamplingKernel {
  std::function<uint64_t(std::span<const double> t, std::span<const double> y)> count;
  std::function<void(std::span<const double> t, std::span<const double> y, std::span<double> x_out,
                     std::span<double> y_out)>
      fill;
};

// The same frame for such a computation; both steps run without the interpreter lock.
PyObject* builtin_generic(PyObject* args, std::string_view name, std::string_view options,
                          const ResamplingKernel& kernel) noexcept;

}  // namespace mirn2::fn
