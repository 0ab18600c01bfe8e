// Module functions: spectrum, heatmap and histogram data, handed over as plain tuples.
#include <algorithm>
#include <future>
#include <limits>

#include "functions/families.h"
#include "objects/many_floats.h"
#include "objects/time_series.h"
#include "runtime/dsp_distribution.h"
#include "runtime/dsp_fft.h"

namespace mirn2::fn {

namespace {

using mirn3::dsp::arg_t;

constexpr double greatest = std::numeric_limits<double>::max();

struct Times {
  double ini;
  double end;

  Times(std::optional<double> given_ini, std::optional<double> given_end)
      : ini(given_ini.value_or(-greatest)), end(given_end.value_or(greatest)) {
    if (ini >= end) fail(PyExc_ValueError, "Final time must be greater than initial time");
  }
};

// The samples whose stamps lie within the times; `chart` is what there may be too few for.
arg_t range_of(const Operand& series, const Times& times, const char* chart) {
  const std::span<const double> t = series.x();
  arg_t range{t.data(), series.y().data(), 0, 0};
  if (!t.empty()) {
    const auto first = static_cast<uint64_t>(std::lower_bound(t.begin(), t.end(), times.ini) - t.begin());
    range.first = std::min<uint64_t>(first, t.size() - 1);
    range.last = static_cast<uint64_t>(std::upper_bound(t.begin(), t.end(), times.end) - t.begin());
  }
  // Stamps that do not ascend may be found in the wrong order.
  if (range.last < range.first || range.last - range.first <= 2) {
    fail(PyExc_ValueError, "Not enough samples to compute {}", chart);
  }
  return range;
}

// A tuple of what make(value) answers for each value: new references.
template <typename Values, typename Make>
Ref tuple_of(const Values& values, const Make& make) {
  Ref tuple = checked(PyTuple_New(static_cast<Py_ssize_t>(values.size())));
  Py_ssize_t i = 0;
  for (const auto& value : values) {
    PyObject* item = make(value);
    if (item == nullptr) throw python_error();
    PyTuple_SET_ITEM(tuple.get(), i++, item);
  }
  return tuple;
}

Ref float_tuple(std::span<const double> values) { return tuple_of(values, PyFloat_FromDouble); }
Ref text_tuple(std::span<const std::string> texts) { return tuple_of(texts, to_unicode); }

// k / duration for every line of a spectrum. Spectra of one length and sampling period share one tuple; the
// last one is kept for the next such spectrum, unless it is very long.
Ref frequencies(size_t lines, double duration) {
  constexpr size_t most_kept = size_t{1} << 20;
  static PyObject* kept = nullptr;  // never released at exit: the interpreter may be gone by then
  static double kept_duration = 0;
  if (kept != nullptr && static_cast<size_t>(PyTuple_GET_SIZE(kept)) == lines && kept_duration == duration) {
    return Ref::share(kept);
  }
  FloatTuple fresh(lines);
  fresh.fill([&](size_t k) { return static_cast<double>(k) / duration; });
  if (lines <= most_kept) {
    Py_XSETREF(kept, Py_NewRef(fresh.get()));
    kept_duration = duration;
  }
  return Ref::share(fresh.get());
}

PyObject* fftdata(PyObject* argument, std::optional<double> ini, std::optional<double> end) {
  const Times times(ini, end);
  const Operand series(series_argument(argument));
  const arg_t range = range_of(series, times, "FFT");

  // Making as many Python numbers takes as long as the transform: do both at once.
  const size_t lines = mirn3::dsp::fft_lines(range);
  Samples amplitudes;
  amplitudes.resize_for_overwrite(lines);
  auto transform = std::async(std::launch::async, [&] {
    const double duration = mirn3::dsp::fft_duration(range);
    mirn3::dsp::fft_values(range, false, amplitudes.span());
    return duration;
  });
  FloatTuple values(lines);
  const double duration = without_gil([&] { return transform.get(); });
  values.fill([&](size_t k) { return amplitudes[k]; });
  return PyTuple_Pack(2, frequencies(lines, duration).get(), values.get());
}

PyObject* heatmapdata(PyObject* x_argument, PyObject* y_argument, std::optional<double> ini,
                      std::optional<double> end, int cols, int rows) {
  const Times times(ini, end);
  const Operand x(series_argument(x_argument));
  const Operand y(series_argument(y_argument));
  constexpr int fewest = 3;
  constexpr int most = 1000;
  cols = std::clamp(cols, fewest, most);
  rows = std::clamp(rows, fewest, most);
  const arg_t range_x = range_of(x, times, "heatmap");
  const arg_t range_y = range_of(y, times, "heatmap");

  const mirn3::dsp::heatmap_t map = without_gil([&] {
    return mirn3::dsp::heatmap(range_x, range_y, static_cast<size_t>(rows), static_cast<size_t>(cols));
  });
  if (map.total == 0.0) {
    fail(PyExc_ValueError, "It was not possible to compute the heatmap with selected range");
  }
  Ref matrix = tuple_of(map.rows, [](const std::vector<double>& row) { return float_tuple(row).release(); });
  Ref column_labels = text_tuple(map.column_labels);
  Ref row_labels = text_tuple(map.row_labels);
  return PyTuple_Pack(3, matrix.get(), column_labels.get(), row_labels.get());
}

PyObject* histdata(PyObject* argument, std::optional<double> ini, std::optional<double> end, int nbins) {
  const Times times(ini, end);
  const Operand series(series_argument(argument));
  const arg_t range = range_of(series, times, "histogram");
  if (nbins < 0) fail(PyExc_ValueError, "The number of bins (nbins={:d}) must not be negative", nbins);
  const auto bins = static_cast<size_t>(std::max(nbins, 3));

  const mirn3::dsp::histogram_t histogram = without_gil([&] { return mirn3::dsp::histogram(range, bins); });
  Ref result = checked(PyTuple_New(static_cast<Py_ssize_t>(bins)));
  for (size_t i = 0; i < bins; ++i) {
    Ref label = checked(to_unicode(histogram.labels[i]));
    Ref value = checked(PyFloat_FromDouble(histogram.values[i]));
    Ref pair = checked(PyTuple_Pack(2, label.get(), value.get()));
    PyTuple_SET_ITEM(result.get(), static_cast<Py_ssize_t>(i), pair.release());
  }
  return result.release();
}

}  // namespace

Rows spectral_rows() {
  static const PyMethodDef rows[] = {
      row<"fftdata", "(series, /, ini=..., end=...)", "O|dd", "Calculate FFT data", fftdata,
          Frame{.online = "fftdata"}>(),
      row<"heatmapdata", "(x, y, /, ini=..., end=..., cols=30, rows=30)", "OO|ddii", "Calculate heatmap data",
          heatmapdata, Frame{.online = "heatmapdata"}>(),
      row<"histdata", "(series, /, ini=..., end=..., nbins=8)", "O|ddi", "Calculate histogram data", histdata,
          Frame{.online = "histdata"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
