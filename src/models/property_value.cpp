// Reads numbers, texts, lists and series out of Python objects.
#include "models/property_value.h"

#include <memory>
#include <vector>

#include "objects/series_object.h"

namespace mirn2 {

namespace {

using plexo::list_t;

[[noreturn]] void refuse(std::string_view name) {
  fail(PyExc_TypeError,
       "Argument '{:s}' must be a number, a text, a list of these, a list of such lists, or a "
       "kvalo.TimeSeries object",
       name);
}

bool is_list(PyObject* object) {
  return PySequence_Check(object) != 0 && !PyUnicode_Check(object) && !PyBytes_Check(object) &&
         !PyByteArray_Check(object);
}

bool is_any_number(PyObject* object) {
  return is_number(object) || PyIndex_Check(object) != 0 ||
         (Py_TYPE(object)->tp_as_number != nullptr && Py_TYPE(object)->tp_as_number->nb_float != nullptr);
}

double number(PyObject* object, std::string_view name) {
  if (!is_any_number(object)) refuse(name);
  const double value = PyFloat_AsDouble(object);
  if (value == -1.0) check_python();
  return value;
}

// The items as they are now: converting one of them may run a script.
Ref items_of(PyObject* sequence) { return checked(PySequence_Tuple(sequence)); }

list_t list_of(PyObject* sequence, std::string_view name) {
  const Ref items = items_of(sequence);
  const auto count = static_cast<size_t>(PyTuple_GET_SIZE(items.get()));
  list_t list;
  list.numbers.resize(count);
  for (size_t i = 0; i < count; ++i) {
    PyObject* item = PyTuple_GET_ITEM(items.get(), static_cast<Py_ssize_t>(i));
    if (PyUnicode_Check(item)) {
      list.texts.emplace_back(static_cast<uint32_t>(i), text_argument(item));
    } else {
      if (is_list(item)) refuse(name);
      list.numbers[i] = number(item, name);
    }
  }
  return list;
}

plexo::value_t list_or_rows(PyObject* sequence, std::string_view name) {
  const Ref items = items_of(sequence);
  if (PyTuple_GET_SIZE(items.get()) == 0 || !is_list(PyTuple_GET_ITEM(items.get(), 0))) {
    return list_of(items.get(), name);
  }
  std::vector<list_t> rows;
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(items.get()); ++i) {
    PyObject* row = PyTuple_GET_ITEM(items.get(), i);
    if (!is_list(row)) refuse(name);
    rows.push_back(list_of(row, name));
  }
  return rows;
}

plexo::value_t series_of(TimeSeriesObject* object) {
  const Operand held(object);  // loaded, and with as many times as values
  auto series = std::make_shared<plexo::series_t>();
  if (Column* x = axis_of(object->xdata)) series->x = x->snapshot();
  if (Column* y = axis_of(object->ydata)) series->y = y->snapshot();
  return series;
}

}  // namespace

plexo::value_t property_value(PyObject* object, std::string_view name) {
  if (TimeSeriesObject* series = as_series(object)) return series_of(series);
  if (PyUnicode_Check(object)) return text_argument(object);
  if (is_list(object)) return list_or_rows(object, name);
  return number(object, name);
}

}  // namespace mirn2
