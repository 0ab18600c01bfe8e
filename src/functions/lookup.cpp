// Module functions: lookup tables, given as Python lists.
#include <algorithm>
#include <vector>

#include "functions/families.h"
#include "objects/time_series.h"
#include "runtime/num_interpolate.h"
#include "runtime/num_merge.h"
#include "runtime/par.h"

namespace mirn2::fn {

namespace {

constexpr const char* not_lists = "Breakpoints and output values must be lists";

// A float counts with its value, an int if 64 bits hold it, anything else as 0.0.
double table_value(PyObject* item) {
  if (PyFloat_Check(item)) return PyFloat_AS_DOUBLE(item);
  if (!PyLong_Check(item)) return 0.0;
  int overflow = 0;
  const long long value = PyLong_AsLongLongAndOverflow(item, &overflow);
  if (overflow != 0) {
    fail(PyExc_OverflowError,
         "Integers in a lookup table must fit into 64 bits; write larger numbers as floats");
  }
  return static_cast<double>(value);
}

void append_values(PyObject* list, std::vector<double>& values) {
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i)
    values.push_back(table_value(PyList_GET_ITEM(list, i)));
}

std::vector<double> values_of(PyObject* list) {
  std::vector<double> values;
  append_values(list, values);
  return values;
}

void require_values(const std::vector<double>& breakpoints) {
  if (breakpoints.empty()) fail(PyExc_ValueError, "A lookup table needs at least one breakpoint");
}

// "[0,1.5,2]"; without values the text is the opening bracket alone.
std::string list_text(std::span<const double> values) {
  std::string text = "[";
  for (const double value : values) text += fmt::format("{:g},", value);
  if (!values.empty()) text.back() = ']';
  return text;
}

// Values by row, as many in each row as there are columns.
struct Table2d {
  std::vector<double> rows;
  std::vector<double> columns;
  std::vector<double> values;

  Table2d(PyObject* bp1, PyObject* bp2, PyObject* val) {
    if (!PyList_Check(bp1) || !PyList_Check(bp2) || !PyList_Check(val))
      fail(PyExc_TypeError, "{}", not_lists);
    if (PyList_GET_SIZE(val) != PyList_GET_SIZE(bp1)) {
      fail(PyExc_ValueError, "Breakpoints 1 (rows) and output values must have the same length");
    }
    rows = values_of(bp1);
    columns = values_of(bp2);
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(val); ++i) {
      PyObject* row = PyList_GET_ITEM(val, i);
      if (!PyList_Check(row)) fail(PyExc_TypeError, "Output values must be a list of lists");
      if (PyList_GET_SIZE(row) != PyList_GET_SIZE(bp2)) {
        fail(PyExc_ValueError, "Breakpoints 2 (columns) and output values must have the same length");
      }
      append_values(row, values);
    }
    require_values(rows);
    require_values(columns);
  }

  std::string values_text() const {
    std::string text = "[";
    for (size_t row = 0; row < rows.size(); ++row) {
      text += list_text(std::span(values).subspan(row * columns.size(), columns.size())) + ",";
    }
    text.back() = ']';
    return text;
  }
};

// The value of a series at ascending times: of the first sample that is not earlier, else of the last one.
class NextSample {
 public:
  NextSample(const Operand& series, double from) : t_(series.x()), y_(series.y()) {
    next_ = static_cast<size_t>(std::lower_bound(t_.begin(), t_.end(), from) - t_.begin());
  }

  double operator()(double time) {
    while (next_ < t_.size() && t_[next_] < time) ++next_;
    return y_[std::min(next_, t_.size() - 1)];
  }

 private:
  std::span<const double> t_;
  std::span<const double> y_;
  size_t next_;
};

void interpolate(const Operand& in1, const Operand& in2, const Table2d& table, bool clip,
                 std::span<const double> times, std::span<double> out) {
  using namespace mirn3::num;
  constexpr size_t least = 1 << 14;
  const auto interpolate2d = clip ? interpolate2d_clip : interpolate2d_extend;
  mirn3::par::ranges(times.size(), least, [&](size_t first, size_t last) {
    NextSample next1(in1, times[first]);
    NextSample next2(in2, times[first]);
    for (size_t i = first; i < last; ++i) {
      out[i] = interpolate2d(next1(times[i]), next2(times[i]), table.rows.data(), table.columns.data(),
                             table.values.data(), table.rows.size(), table.columns.size());
    }
  });
}

const char* truth(bool value) { return value ? "True" : "False"; }

Ref lut1d(PyObject* argument, PyObject* bp, PyObject* val, bool clip) {
  if (!PyList_Check(bp) || !PyList_Check(val)) fail(PyExc_TypeError, "{}", not_lists);
  if (PyList_GET_SIZE(bp) != PyList_GET_SIZE(val)) {
    fail(PyExc_ValueError, "Breakpoints and output values must have the same length");
  }
  const std::vector<double> breakpoints = values_of(bp);
  const std::vector<double> values = values_of(val);
  require_values(breakpoints);

  const Operand series(series_argument(argument));
  Ref result = result_like(series, [&](std::span<double> out) {
    mirn3::num::interpolate1d(series.y(), breakpoints, values, clip, out);
  });
  set_script(as_series(result.get()),
             fmt::format("kvalo.lut1d({:s}, bp={:s}, val={:s}, clip={:s})", series.name(),
                         list_text(breakpoints), list_text(values), truth(clip)));
  return result;
}

Ref lut2d(PyObject* argument1, PyObject* argument2, PyObject* bp1, PyObject* bp2, PyObject* val, bool clip) {
  const Table2d table(bp1, bp2, val);
  TimeSeriesObject* series1 = series_argument(argument1);
  TimeSeriesObject* series2 = series_argument(argument2);
  const Operand in1(series1);
  const Operand in2(series2);
  if (in1.size() == 0 || in2.size() == 0) fail(PyExc_ValueError, "Both series must have samples");

  Samples times;
  Samples out;
  without_gil([&] {
    times = mirn3::num::merge(in1.x().data(), in2.x().data(), in1.size(), in2.size());
    out.resize_for_overwrite(times.size());
    interpolate(in1, in2, table, clip, times.span(), out.span());
  });
  Ref result = make_result(std::move(times), std::move(out));
  set_script(as_series(result.get()),
             fmt::format("kvalo.lut2d(in1={:s}, in2={:s}, bp1={:s}, bp2={:s}, val={:s}, clip={:s})",
                         in1.name(), in2.name(), list_text(table.rows), list_text(table.columns),
                         table.values_text(), truth(clip)));
  return result;
}

}  // namespace

Rows lookup_rows() {
  static const PyMethodDef rows[] = {
      row<"lut1d", "(series, /, bp, val, clip=True)", "OOO|p", "Lookup table interpolation (1D)", lut1d,
          Frame{.online = "lut1d"}>(),
      row<"lut2d", "(in1, in2, bp1, bp2, val, clip=True)", "OOOOO|p", "Lookup table interpolation (2D)",
          lut2d, Frame{.online = "lut2d"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
