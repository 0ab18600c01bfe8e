// Script functions that condition the values of one series.
#include "functions/conditioning.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "functions/generic.h"
#include "kernels/bit_field.h"
#include "kernels/coding_name.h"
#include "kernels/conditioning.h"
#include "objects/frame.h"

namespace mirn2::fn {

namespace {

using kernels::Axis;
using kernels::Result;

constexpr double inf = std::numeric_limits<double>::infinity();

// Parses the options behind the series, which is the first argument and has no keyword.
template <typename... Options>
void parse(PyObject* args, PyObject* keywords, const char* format,
           const char* const (&names)[sizeof...(Options) + 2], Options*... options) {
  PyObject* series = nullptr;  // borrowed; the frame takes it from `args` again
  if (!PyArg_ParseTupleAndKeywords(args, keywords, format, const_cast<char**>(names), &series, options...)) {
    throw python_error();
  }
}

}  // namespace

PyObject* clamp(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    kernels::Limits limits{-inf, inf};
    parse(args, keywords, "O|dd:clamp", {"", "lower", "upper", nullptr}, &limits.lower, &limits.upper);
    return builtin_generic(args, "clamp", fmt::format("lower={:g}, upper={:g}", limits.lower, limits.upper),
                           [=](Axis, Axis y, Result out) { kernels::clamp(y, limits, out); });
  });
}

PyObject* debounce(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    kernels::Persistence pers{0.0, 0.0};
    parse(args, keywords, "O|dd:debounce", {"", "on", "off", nullptr}, &pers.on, &pers.off);
    return builtin_generic(args, "debounce", fmt::format("on={:g}, off={:g}", pers.on, pers.off),
                           [=](Axis t, Axis y, Result out) { kernels::debounce(t, y, pers, out); });
  });
}

PyObject* drop(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    double lim1 = -inf;
    double lim2 = inf;
    const char* op1 = "le";
    const char* op2 = "ge";
    parse(args, keywords, "O|ddss:drop", {"", "lim1", "lim2", "op1", "op2", nullptr}, &lim1, &lim2, &op1,
          &op2);
    const auto first = kernels::Test::of(op1, lim1);
    const auto second = kernels::Test::of(op2, lim2);
    std::optional<kernels::Selection> left;
    const ResamplingKernel kernel{
        [&](Axis, Axis y) { return left.emplace(y, first, second).size(); },
        [&](Axis t, Axis y, Result x_out, Result y_out) { left->copy(t, y, x_out, y_out); }};
    return builtin_generic(args, "drop",
                           fmt::format("lim1={:g}, lim2={:g}, op1='{:s}', op2='{:s}'", lim1, lim2, op1, op2),
                           kernel);
  });
}

PyObject* hysteresis(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    kernels::Limits limits{0.0, 0.0};
    parse(args, keywords, "O|dd:hysteresis", {"", "lower", "upper", nullptr}, &limits.lower, &limits.upper);
    return builtin_generic(args, "hysteresis",
                           fmt::format("lower={:g}, upper={:g}", limits.lower, limits.upper),
                           [=](Axis, Axis y, Result out) { kernels::hysteresis(y, limits, out); });
  });
}

PyObject* in_range(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    kernels::Limits limits{-inf, inf};
    double pers = 0.0;
    parse(args, keywords, "O|ddd:in_range", {"", "lower", "upper", "pers", nullptr}, &limits.lower,
          &limits.upper, &pers);
    return builtin_generic(args, "in_range",
                           fmt::format("lower={:g}, upper={:g}, pers={:g}", limits.lower, limits.upper, pers),
                           [=](Axis t, Axis y, Result out) { kernels::in_range(t, y, limits, pers, out); });
  });
}

PyObject* lerp(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    double a = 0.0;
    double b = 0.0;
    parse(args, keywords, "Odd:lerp", {"", "a", "b", nullptr}, &a, &b);
    return builtin_generic(args, "lerp", fmt::format("a={:g}, b={:g}", a, b),
                           [=](Axis, Axis y, Result out) { kernels::lerp(y, a, b, out); });
  });
}

PyObject* stale(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    double pers = 0.0;
    parse(args, keywords, "Od:stale", {"", "pers", nullptr}, &pers);
    return builtin_generic(args, "stale", fmt::format("pers={:g}", pers),
                           [=](Axis t, Axis y, Result out) { kernels::stale(t, y, pers, out); });
  });
}

PyObject* unpack(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    unsigned long long msb = 0;
    unsigned long long lsb = 0;
    unsigned long long base = 0;
    double gain = 1.0;
    double bias = 0.0;
    const char* type = "USGN";
    // Two names each for gain and bias: of both, the later in the format stands.
    parse(args, keywords, "O|KKKdddds:unpack",
          {"", "msb", "lsb", "base", "resolution", "gain", "offset", "bias", "type", nullptr}, &msb, &lsb,
          &base, &gain, &gain, &bias, &bias, &type);
    if (msb < lsb) fail(PyExc_ValueError, "LSB must be smaller than MSB");
    if (lsb < base) fail(PyExc_ValueError, "Inconsistent BASE value");
    const kernels::BitField field{msb - base, lsb - base, gain, bias};
    const kernels::Coding coding = kernels::coding_named(type);
    return builtin_generic(args, "unpack",
                           fmt::format("msb={:d}, lsb={:d}, base={:d}, gain={:g}, bias={:g}, type='{:s}'",
                                       msb, lsb, base, gain, bias, type),
                           [=](Axis, Axis y, Result out) { kernels::decode_bits(y, field, coding, out); });
  });
}

}  // namespace mirn2::fn
