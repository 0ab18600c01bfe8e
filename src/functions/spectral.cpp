// Module functions: spectrum, heatmap and histogram data, handed over as plain tuples.
#include "functions/spectral.h"

#include <algorithm>
#include <future>
#include <limits>

#include "objects/frame.h"
#include "objects/many_floats.h"
#include "objects/time_series.h"
#include "runtime/dsp_distribution.h"
#include "runtime/dsp_fft.h"

namespace mirn2::fn {

namespace {

using mirn3::dsp::arg_t;

constexpr double greatest = std::numeric_limits<double>::max();

struct Times {
  double ini = -greatest;
  double end = greatest;

  void check() const {
    if (ini >= end) fail(PyExc_ValueError, "Final time must be greater than initial time");
  }
};

TimeSeriesObject* chart_input(PyObject* object) {
  if (object == nullptr) fail(PyExc_ValueError, "Missing kvalo.TimeSeries object");
  return series_argument(object);
}

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

char** names(const char* const* keywords) { return const_cast<char**>(keywords); }

}  // namespace

PyObject* fftdata(PyObject*, PyObject* args, PyObject* keywords) {
  static const char* const known[] = {"", "ini", "end", nullptr};
  return guard(PyExc_ValueError, [&] {
    refuse_online("fftdata");
    PyObject* object = nullptr;
    Times times;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "O|dd", names(known), &object, &times.ini, &times.end)) {
      throw python_error();
    }
    times.check();
    const Operand series(chart_input(object));
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
  });
}

PyObject* heatmapdata(PyObject*, PyObject* args, PyObject* keywords) {
  static const char* const known[] = {"", "", "ini", "end", "cols", "rows", nullptr};
  return guard(PyExc_ValueError, [&] {
    refuse_online("heatmapdata");
    PyObject *object_x = nullptr, *object_y = nullptr;
    Times times;
    int cols = 30;
    int rows = 30;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "OO|ddii", names(known), &object_x, &object_y,
                                     &times.ini, &times.end, &cols, &rows)) {
      throw python_error();
    }
    times.check();
    const Operand x(chart_input(object_x));
    const Operand y(chart_input(object_y));
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
    Ref matrix =
        tuple_of(map.rows, [](const std::vector<double>& row) { return float_tuple(row).release(); });
    Ref column_labels = text_tuple(map.column_labels);
    Ref row_labels = text_tuple(map.row_labels);
    return PyTuple_Pack(3, matrix.get(), column_labels.get(), row_labels.get());
  });
}

PyObject* histdata(PyObject*, PyObject* args, PyObject* keywords) {
  static const char* const known[] = {"", "ini", "end", "nbins", nullptr};
  return guard(PyExc_ValueError, [&] {
    refuse_online("histdata");
    PyObject* object = nullptr;
    Times times;
    int nbins = 8;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "O|ddi", names(known), &object, &times.ini, &times.end,
                                     &nbins)) {
      throw python_error();
    }
    times.check();
    const Operand series(chart_input(object));
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
  });
}

}  // namespace mirn2::fn
