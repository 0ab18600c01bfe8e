// Module functions: logic conditioning and value shaping of one series.
#include "kernels/conditioning.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "functions/families.h"
#include "functions/generic.h"
#include "kernels/bit_field.h"
#include "kernels/coding_name.h"

namespace mirn2::fn {

namespace {

using kernels::Axis;
using kernels::Result;

// Two names each for gain and bias: of both, the later in the format stands.
Ref unpack(PyObject* series, unsigned long long msb, unsigned long long lsb, unsigned long long base,
           double resolution, std::optional<double> given_gain, double offset,
           std::optional<double> given_bias, const char* type) {
  if (msb < lsb) fail(PyExc_ValueError, "LSB must be smaller than MSB");
  if (lsb < base) fail(PyExc_ValueError, "Inconsistent BASE value");
  const double gain = given_gain.value_or(resolution);
  const double bias = given_bias.value_or(offset);
  const kernels::BitField field{msb - base, lsb - base, gain, bias};
  const kernels::Coding coding = kernels::coding_named(type);
  return builtin_generic(series, "unpack",
                         fmt::format("msb={:d}, lsb={:d}, base={:d}, gain={:g}, bias={:g}, type='{:s}'", msb,
                                     lsb, base, gain, bias, type),
                         [&](Axis, Axis y, Result out) { kernels::decode_bits(y, field, coding, out); });
}

Ref debounce(PyObject* series, double on, double off) {
  return builtin_generic(series, "debounce", fmt::format("on={:g}, off={:g}", on, off),
                         [&](Axis t, Axis y, Result out) {
                           kernels::debounce(t, y, {on, off}, out);
                         });
}

Ref hysteresis(PyObject* series, double lower, double upper) {
  return builtin_generic(series, "hysteresis", fmt::format("lower={:g}, upper={:g}", lower, upper),
                         [&](Axis, Axis y, Result out) {
                           kernels::hysteresis(y, {lower, upper}, out);
                         });
}

Ref clamp(PyObject* series, double lower, double upper) {
  return builtin_generic(series, "clamp", fmt::format("lower={:g}, upper={:g}", lower, upper),
                         [&](Axis, Axis y, Result out) {
                           kernels::clamp(y, {lower, upper}, out);
                         });
}

Ref drop(PyObject* series, double lim1, double lim2, const char* op1, const char* op2) {
  const auto first = kernels::Test::of(op1, lim1);
  const auto second = kernels::Test::of(op2, lim2);
  std::optional<kernels::Selection> left;
  return builtin_resampling(
      series, "drop", fmt::format("lim1={:g}, lim2={:g}, op1='{:s}', op2='{:s}'", lim1, lim2, op1, op2),
      [&](Axis, Axis y) { return left.emplace(y, first, second).size(); },
      [&](Axis t, Axis y, Result x_out, Result y_out) { left->copy(t, y, x_out, y_out); });
}

Ref in_range(PyObject* series, double lower, double upper, double pers) {
  return builtin_generic(series, "in_range",
                         fmt::format("lower={:g}, upper={:g}, pers={:g}", lower, upper, pers),
                         [&](Axis t, Axis y, Result out) {
                           kernels::in_range(t, y, {lower, upper}, pers, out);
                         });
}

Ref stale(PyObject* series, double pers) {
  return builtin_generic(series, "stale", fmt::format("pers={:g}", pers),
                         [&](Axis t, Axis y, Result out) { kernels::stale(t, y, pers, out); });
}

Ref lerp(PyObject* series, double a, double b) {
  return builtin_generic(series, "lerp", fmt::format("a={:g}, b={:g}", a, b),
                         [&](Axis, Axis y, Result out) { kernels::lerp(y, a, b, out); });
}

}  // namespace

Rows conditioning_rows() {
  static const PyMethodDef rows[] = {
      row<"unpack",
          "(series, /, msb=0, lsb=0, base=0, resolution=1.0, gain=1.0, offset=0.0, bias=0.0, type='USGN')",
          "O|KKKdddds",
          "Unpack values, selecting the desired bits and applying offset and resolution (bit extraction)",
          unpack>(),
      row<"debounce", "(series, /, on=0.0, off=0.0)", "O|dd",
          "Debounce. Persistences should be provided in the same unit of the argument's time vector",
          debounce>(),
      row<"hysteresis", "(series, /, lower=0.0, upper=0.0)", "O|dd",
          "Output 1 if the argument is bigger than the upper threshold and 0 if the argument is smaller than "
          "the lower threshold",
          hysteresis>(),
      row<"clamp", "(series, /, lower=-inf, upper=inf)", "O|dd",
          "If argument is less than lower limit, returns lower limit; otherwise if argument is greater than "
          "upper limit, returns higher limit; otherwise returns argument",
          clamp>(),
      row<"drop", "(series, /, lim1=-inf, lim2=inf, op1='le', op2='ge')", "O|ddss",
          "Drop elements within either of the specified limits", drop>(),
      row<"in_range", "(series, /, lower=-inf, upper=inf, pers=0.0)", "O|ddd",
          "Check whether argument is within boundaries", in_range>(),
      row<"stale", "(series, /, pers)", "Od",
          "Check whether argument has been the same in the previous samples", stale>(),
  };
  return rows;
}

Rows interpolation_rows() {
  static const PyMethodDef rows[] = {
      row<"lerp", "(series, /, a, b)", "Odd", "Linear interpolation", lerp>(),
  };
  return rows;
}

}  // namespace mirn2::fn
