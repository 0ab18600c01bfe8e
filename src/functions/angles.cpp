// Module functions: angles.
#include "functions/families.h"
#include "objects/series_operators.h"

namespace mirn2::fn {

namespace {

Ref angular_distance(PyObject* a, PyObject* b, const char* type) {
  if (!is_series_operand(a) || !is_series_operand(b)) {
    fail(PyExc_TypeError, "Arguments must be a kvalo.TimeSeries object");
  }
  const bool radians = std::string_view(type) == "rad";
  const auto apart = radians ? kernels::Operator::radians_apart : kernels::Operator::degrees_apart;
  Ref result = combine(as_series(a), as_series(b), kernels::binary(apart));
  set_script(as_series(result.get()),
             fmt::format("kvalo.angular_distance({:s}, {:s}, type='{:s}')", name_of(as_series(a)),
                         name_of(as_series(b)), radians ? "rad" : "deg"));
  return result;
}

}  // namespace

Rows angle_rows() {
  static const PyMethodDef rows[] = {
      row<"angular_distance", "(a, b, /, type='deg')", "OO|s", "Minimum distance between two angles",
          angular_distance>(),
  };
  return rows;
}

}  // namespace mirn2::fn
