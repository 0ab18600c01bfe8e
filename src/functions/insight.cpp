// Script function insight: reports what happened before an event.
#include "functions/insight.h"

#include "containers/container_type.h"
#include "kernels/insight.h"
#include "objects/frame.h"
#include "objects/time_series.h"
#include "readers/reader.h"

namespace mirn2::fn {

namespace {

std::vector<double> event_times(TimeSeriesObject* event) {
  const Operand operand(event);
  std::vector<double> times = without_gil([&] { return kernels::rising_edges(operand.x(), operand.y()); });
  if (times.size() < 2) {
    fail(PyExc_Exception, "There must be at least two rising edge moments in the 'Event' object");
  }
  return times;
}

void tell(const std::string& name, const kernels::Precursor& found) {
  rd::warn(fmt::format("{0}, {1:g} seconds before every occurrence, {3} {2:g}.", name, found.lead,
                       found.threshold, found.falls ? "decreased to below" : "increased to above"));
}

// A series without samples to be had is passed over; only what ends the script goes on.
void tell_precursors(TimeSeriesObject* series, std::span<const double> events, double window) {
  try {
    const Operand operand(series);
    const auto found =
        without_gil([&] { return kernels::find_precursors(operand.x(), operand.y(), events, window); });
    for (const kernels::Precursor& precursor : found) tell(operand.name(), precursor);
  } catch (const python_error&) {
    if (PyErr_ExceptionMatches(PyExc_Exception) == 0) throw;
    PyErr_Clear();
  } catch (const std::exception&) {
  }
}

}  // namespace

PyObject* insight(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_Exception, [&]() -> PyObject* {
    refuse_online("insight");
    static const char* names[] = {"event", "pool", "window", nullptr};
    PyObject* event_argument = nullptr;
    PyObject* pool_argument = nullptr;
    double window = 10.0;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "OO|d", const_cast<char**>(names), &event_argument,
                                     &pool_argument, &window)) {
      throw python_error();
    }
    TimeSeriesObject* event = as_series(event_argument);
    if (event == nullptr) fail(PyExc_TypeError, "'Event' must be a kvalo.TimeSeries object");
    const ContainerObject* pool = as_container(pool_argument);
    if (pool == nullptr) fail(PyExc_TypeError, "'Pool' must be a kvalo.Container object");
    const std::vector<double> events = event_times(event);
    if (pool->container == nullptr) Py_RETURN_NONE;
    const std::shared_ptr<Container> container = *pool->container;
    for (const auto& record : container->variables()) {
      // Objects that show the record of the event are the event, whichever of them was given.
      if (record.get() == record_of(event) || record->owner == nullptr) continue;
      const Ref series = object_of(record);
      tell_precursors(as_series(series.get()), events, window);
      if (PyErr_CheckSignals() != 0) throw python_error();
    }
    Py_RETURN_NONE;
  });
}

}  // namespace mirn2::fn
