// Module functions on the registry: finding series and containers, and merging a file into the one it fits.
#include "containers/registry_functions.h"

#include "containers/bank.h"
#include "containers/compatible.h"
#include "containers/container_type.h"
#include "objects/time_series.h"

namespace mirn2::fn {

namespace {

constexpr double merge_ratio = 0.1;

std::string expression_argument(Items items) {
  if (items.empty() || type_name(Py_TYPE(items[0])) != "str") {
    fail(PyExc_Exception, "No regular expression provided");
  }
  return text_argument(items[0]);
}

[[noreturn]] void fail_without_match(const std::string& expression) {
  fail(PyExc_Exception, "No variable matched the regular expression {}", expression);
}

// The script object of a container found in the registry.
Ref container_object(const std::shared_ptr<Container>& container) {
  if (!container || container->object == nullptr) return Ref::share(Py_None);
  return Ref::share(reinterpret_cast<PyObject*>(container->object));
}

Ref find(Items items) {
  const std::string expression = expression_argument(items);
  const std::shared_ptr<TimeSeries> series = bank().find(expression);
  if (!series) fail_without_match(expression);
  return object_of(series);
}

Ref list(Items items) {
  const std::string expression = expression_argument(items);
  const auto matches = bank().list(expression);
  if (matches.empty()) fail_without_match(expression);
  Ref result = checked(PyList_New(0));
  for (const auto& series : matches) {
    if (PyList_Append(result.get(), object_of(series).get()) < 0) throw python_error();
  }
  return result;
}

Ref find_by_ratio(const char* path, double ratio) { return container_object(find_compatible(path, ratio)); }

PyObject* merge(const char* path) {
  const Ref container = container_object(find_compatible(path, merge_ratio));
  if (container.get() == Py_None) {
    fail(PyExc_Exception, "There's no container compatible with '{:s}'", path);
  }
  return PyObject_CallMethod(container.get(), "merge", "s", path);
}

}  // namespace

Rows search_rows() {
  static const PyMethodDef rows[] = {
      row<"find_by_ratio", "(path, ratio=0.5)", "s|d", "Find compatible kvalo.Container for merging",
          find_by_ratio, Frame{.failures = &PyExc_Exception}>(),
      row<"find", "(expression, /)", "*", "Find first kvalo.TimeSeries using regular expression", find,
          Frame{.failures = &PyExc_Exception}>(),
      row<"list", "(expression, /)", "*", "List all kvalo.TimeSeries using regular expression", list,
          Frame{.failures = &PyExc_Exception}>(),
  };
  return rows;
}

Rows merge_rows() {
  static const PyMethodDef rows[] = {
      row<"merge", "(path)", "s", "Find compatible kvalo.Container and merge file into it", merge,
          Frame{.failures = &PyExc_Exception, .online = "merge"}>(),
  };
  return rows;
}

}  // namespace mirn2::fn
