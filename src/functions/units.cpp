// Script function convert: conversion between physical units.
#include "functions/units.h"

#include "kernels/units.h"
#include "objects/frame.h"
#include "objects/time_series.h"
#include "runtime/str.h"

namespace mirn2::fn {

namespace {

kernels::Unit unit_argument(const char* text) { return kernels::unit_named(mirn3::str::to_lower(text)); }

}  // namespace

PyObject* convert(PyObject*, PyObject* args) {
  return guard(PyExc_ValueError, [&] {
    refuse_online("convert");
    PyObject* argument = nullptr;
    const char* from_text = nullptr;
    const char* to_text = nullptr;
    if (!PyArg_ParseTuple(args, "Oss", &argument, &from_text, &to_text)) throw python_error();
    const kernels::Unit from = unit_argument(from_text);
    const kernels::Unit to = unit_argument(to_text);
    if (from == kernels::Unit::unknown) fail(PyExc_ValueError, "Unknown unit '{:s}'", from_text);
    if (to == kernels::Unit::unknown) fail(PyExc_ValueError, "Unknown unit '{:s}'", to_text);
    const auto conversion = kernels::conversion(from, to);
    if (!conversion) fail(PyExc_ValueError, "Cannot convert '{:s}' into '{:s}'", from_text, to_text);
    const Operand operand(series_argument(argument));
    Ref result =
        result_like(operand, [&](std::span<double> out) { kernels::convert(operand.y(), *conversion, out); });
    set_script(as_series(result.get()),
               fmt::format("kvalo.convert({:s}, {:s}, {:s})", operand.name(), from_text, to_text));
    return result.release();
  });
}

}  // namespace mirn2::fn
