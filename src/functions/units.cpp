// Module function: conversion between physical units.
#include "kernels/units.h"

#include "functions/families.h"
#include "objects/time_series.h"
#include "runtime/str.h"

namespace mirn2::fn {

namespace {

kernels::Unit unit_argument(const char* text) { return kernels::unit_named(mirn3::str::to_lower(text)); }

Ref convert(PyObject* series, const char* from_text, const char* to_text) {
  const kernels::Unit from = unit_argument(from_text);
  const kernels::Unit to = unit_argument(to_text);
  if (from == kernels::Unit::unknown) fail(PyExc_ValueError, "Unknown unit '{:s}'", from_text);
  if (to == kernels::Unit::unknown) fail(PyExc_ValueError, "Unknown unit '{:s}'", to_text);
  const auto conversion = kernels::conversion(from, to);
  if (!conversion) fail(PyExc_ValueError, "Cannot convert '{:s}' into '{:s}'", from_text, to_text);
  const Operand operand(series_argument(series));
  Ref result =
      result_like(operand, [&](std::span<double> out) { kernels::convert(operand.y(), *conversion, out); });
  set_script(as_series(result.get()),
             fmt::format("kvalo.convert({:s}, {:s}, {:s})", operand.name(), from_text, to_text));
  return result;
}

}  // namespace

Rows unit_rows() {
  static const PyMethodDef rows[] = {
      row<"convert", "(series, from_unit, to_unit, /)", "Oss", "Convert between units", convert,
          Frame{.online = "convert"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
