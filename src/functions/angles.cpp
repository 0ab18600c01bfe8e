// Script functions on angles.
#include "functions/angles.h"

#include "objects/frame.h"
#include "objects/series_operators.h"

namespace mirn2::fn {

PyObject* angular_distance(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&]() -> PyObject* {
    static const char* names[] = {"", "", "type", nullptr};
    PyObject* a = nullptr;
    PyObject* b = nullptr;
    const char* type = "deg";
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "OO|s", const_cast<char**>(names), &a, &b, &type)) {
      throw python_error();
    }
    if (!is_series_operand(a) || !is_series_operand(b)) {
      fail(PyExc_TypeError, "Arguments must be a kvalo.TimeSeries object");
    }
    const bool radians = std::string_view(type) == "rad";
    const auto apart = radians ? kernels::Operator::radians_apart : kernels::Operator::degrees_apart;
    Ref result = combine(as_series(a), as_series(b), kernels::binary(apart));
    set_script(as_series(result.get()),
               fmt::format("kvalo.angular_distance({:s}, {:s}, type='{:s}')", name_of(as_series(a)),
                           name_of(as_series(b)), radians ? "rad" : "deg"));
    return result.release();
  });
}

}  // namespace mirn2::fn
