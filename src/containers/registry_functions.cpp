// Module functions on the registry: finding series and containers, and merging a file into the one it fits.
#include "containers/registry_functions.h"

#include "containers/bank.h"
#include "containers/compatible.h"
#include "containers/container_type.h"
#include "objects/frame.h"
#include "objects/time_series.h"

namespace mirn2::fn {

namespace {

constexpr double merge_ratio = 0.1;
constexpr double default_ratio = 0.5;

std::string expression_argument(PyObject* args) {
  PyObject* expression = PyTuple_GET_SIZE(args) > 0 ? PyTuple_GET_ITEM(args, 0) : nullptr;
  if (expression == nullptr || type_name(Py_TYPE(expression)) != "str") {
    fail(PyExc_Exception, "No regular expression provided");
  }
  return text_argument(expression);
}

[[noreturn]] void fail_without_match(const std::string& expression) {
  fail(PyExc_Exception, "No variable matched the regular expression {}", expression);
}

// The script object of a container found in the registry.
Ref container_object(const std::shared_ptr<Container>& container) {
  if (!container || container->object == nullptr) return Ref::share(Py_None);
  return Ref::share(reinterpret_cast<PyObject*>(container->object));
}

}  // namespace

PyObject* find(PyObject*, PyObject* args) {
  return guard(PyExc_Exception, [&] {
    const std::string expression = expression_argument(args);
    const std::shared_ptr<TimeSeries> series = bank().find(expression);
    if (!series) fail_without_match(expression);
    return object_of(series).release();
  });
}

PyObject* list(PyObject*, PyObject* args) {
  return guard(PyExc_Exception, [&] {
    const std::string expression = expression_argument(args);
    const auto matches = bank().list(expression);
    if (matches.empty()) fail_without_match(expression);
    Ref result = checked(PyList_New(0));
    for (const auto& series : matches) {
      if (PyList_Append(result.get(), object_of(series).get()) < 0) throw python_error();
    }
    return result.release();
  });
}

PyObject* find_by_ratio(PyObject*, PyObject* args, PyObject* kwargs) {
  return guard(PyExc_Exception, [&] {
    static const char* keywords[] = {"path", "ratio", nullptr};
    const char* path = nullptr;
    double ratio = default_ratio;
    if (!PyArg_ParseTupleAndKeywords(args, kwargs, "s|d", const_cast<char**>(keywords), &path, &ratio)) {
      throw python_error();
    }
    return container_object(find_compatible(path, ratio)).release();
  });
}

PyObject* merge(PyObject*, PyObject* args, PyObject* kwargs) {
  return guard(PyExc_Exception, [&]() -> PyObject* {
    refuse_online("merge");
    static const char* keywords[] = {"path", nullptr};
    const char* path = nullptr;
    if (!PyArg_ParseTupleAndKeywords(args, kwargs, "s", const_cast<char**>(keywords), &path)) {
      throw python_error();
    }
    const Ref container = container_object(find_compatible(path, merge_ratio));
    if (container.get() == Py_None) {
      fail(PyExc_Exception, "There's no container compatible with '{:s}'", path);
    }
    const Ref method = checked(PyObject_GetAttrString(container.get(), "merge"));
    return PyObject_Call(method.get(), args, kwargs);
  });
}

}  // namespace mirn2::fn
