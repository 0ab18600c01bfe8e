// Finds the series of a chart command, takes its samples into the record, and sends it.
#include "charts/series_chart.h"

#include "containers/bank.h"
#include "hostlink/send.h"
#include "objects/time_series.h"
#include "runtime/num.h"

namespace mirn2 {

namespace {

// The name under which one of the dictionary's items is this very object; empty when there is none.
std::string name_in(PyObject* names, PyObject* object) {
  PyObject *key = nullptr, *value = nullptr;
  Py_ssize_t at = 0;
  while (names != nullptr && PyDict_Check(names) && PyDict_Next(names, &at, &key, &value)) {
    if (value == object && PyUnicode_Check(key)) return to_text(key);
  }
  return {};
}

std::string display_name(TimeSeriesObject* series, PyObject* object) {
  const TimeSeries* record = record_of(series);
  return record != nullptr ? record->main_name : name_in_script(object);
}

Ref series_named(const char* name) {
  const std::shared_ptr<TimeSeries> record = bank().find_named(name);
  if (!record) fail(PyExc_Exception, "Could not find variable '{:s}'", name);
  return object_of(record);
}

void take_samples(const TimeSeriesObject* series, dto_chart_t& chart) {
  const Column* x = axis_of(series->xdata);
  const Column* y = axis_of(series->ydata);
  if (x == nullptr || y == nullptr) return;
  if (x->size() != y->size()) {
    fail(PyExc_ValueError, "'{:s}' has {} times for {} values", chart.name, x->size(), y->size());
  }
  chart.x = x->snapshot();
  chart.y = y->snapshot();
}

}  // namespace

std::string name_in_script(PyObject* object) {
  for (PyObject* names : {PyEval_GetLocals(), PyEval_GetGlobals()}) {
    if (std::string name = name_in(names, object); !name.empty()) return name;
  }
  PyErr_Clear();  // without a calling script there are no names
  return "n/a";
}

uint64_t send_chart(const char* message, dto_chart_t&& filled, const Shown& shown) {
  const auto chart = std::make_shared<dto_chart_t>(std::move(filled));
  Ref object = Ref::share(shown.object);
  if (!object && shown.name != nullptr) object = series_named(shown.name);
  if (object) {
    TimeSeriesObject* series = series_argument(object.get());
    chart->name = shown.name != nullptr ? shown.name : display_name(series, object.get());
    load_series(series);
    if (const TimeSeries* record = record_of(series)) chart->full_name = record->full_name;
    chart->flags = series->flags;
    chart->series_id = series->id64;
    take_samples(series, *chart);
  }
  chart->id = mirn3::num::check_id(chart->id);
  const uint64_t id = chart->id;
  hostlink::send_record(message, chart);
  return id;
}

}  // namespace mirn2
