// Module function: what happened before an event.
#include "kernels/insight.h"

#include "containers/container_type.h"
#include "functions/families.h"
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

void insight(PyObject* event_argument, PyObject* pool_argument, double window) {
  TimeSeriesObject* event = as_series(event_argument);
  if (event == nullptr) fail(PyExc_TypeError, "'Event' must be a kvalo.TimeSeries object");
  const ContainerObject* pool = as_container(pool_argument);
  if (pool == nullptr) fail(PyExc_TypeError, "'Pool' must be a kvalo.Container object");
  const std::vector<double> events = event_times(event);
  if (pool->container == nullptr) return;
  const std::shared_ptr<Container> container = *pool->container;
  for (const auto& record : container->variables()) {
    // Objects that show the record of the event are the event, whichever of them was given.
    if (record.get() == record_of(event) || record->owner == nullptr) continue;
    const Ref series = object_of(record);
    tell_precursors(as_series(series.get()), events, window);
    if (PyErr_CheckSignals() != 0) throw python_error();
  }
}

}  // namespace

Rows insight_rows() {
  static const PyMethodDef rows[] = {
      row<"insight", "(event, pool, window=10.0)", "OO|d",
          "List events that happened before rising edge of the input", insight,
          Frame{.failures = &PyExc_Exception, .online = "insight"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
