// Evaluates the texts that stand for numbers, once for every check of a model.
#include "blocks/expr.h"

#include <fmt/format.h>

#include <charconv>
#include <limits>

#include "blocks/py_ref.h"
#include "blocks/quoted.h"

namespace plexo {

namespace {

namespace python = mirn3::python;
using python::object;

constexpr double inf = std::numeric_limits<double>::infinity();

// The functions of expressions.py, run once and kept for the life of the interpreter.
object helpers() {
  static object scope = nullptr;
  if (scope != nullptr) return scope;
  const auto& t = python::table;
  const Ref builtins(t.PyImport_ImportModule("builtins"));
  object made = builtins ? t.PyDict_New() : nullptr;
  if (made == nullptr) return nullptr;
  const Ref done(t.PyDict_SetItemString(made, "__builtins__", builtins.get()) == 0
                     ? t.PyObject_CallMethod(builtins.get(), "exec", "sO", quoted::expressions, made)
                     : nullptr);
  if (!done) {
    t.Py_DecRef(made);
    return nullptr;
  }
  return scope = made;
}

bool read_list(object list, list_t& into) {
  const auto& t = python::table;
  const ptrdiff_t size = t.PyList_Size(list);
  for (ptrdiff_t i = 0; i < size; ++i) into.numbers.push_back(t.PyFloat_AsDouble(t.PyList_GetItem(list, i)));
  return size >= 0;
}

// What evaluate() of expressions.py has returned.
bool read_plain(object shape_and_value, value_t& result) {
  const auto& t = python::table;
  object value = t.PyTuple_GetItem(shape_and_value, 1);
  list_t list;
  std::vector<list_t> rows;
  switch (t.PyLong_AsLong(t.PyTuple_GetItem(shape_and_value, 0))) {
    case 1:
      result = t.PyFloat_AsDouble(value);
      return true;
    case 2:
      if (!read_list(value, list)) return false;
      result = std::move(list);
      return true;
    case 3:
      for (ptrdiff_t i = 0; i < t.PyList_Size(value); ++i) {
        if (!read_list(t.PyList_GetItem(value, i), rows.emplace_back())) return false;
      }
      result = std::move(rows);
      return true;
    default:
      result = std::string();
      return true;
  }
}

bool evaluate_text(const std::string& text, bool is_from_file, value_t& result, std::string& why) {
  if (double number = 0.0; plain_number(text, number)) {
    result = number;
    return true;
  }
  if (!python::is_filled()) {
    why = fmt::format("is the expression \"{:s}\", and there is no Python interpreter to evaluate it", text);
    return false;
  }
  const auto& t = python::table;
  const python::Lock lock;
  const Ref value([&]() -> object {
    object scope = helpers();
    object main = scope != nullptr ? t.PyImport_AddModule("__main__") : nullptr;
    if (main == nullptr) return nullptr;
    return t.PyObject_CallMethod(t.PyDict_GetItemString(scope, "evaluate"), "__call__", "sOi", text.c_str(),
                                 t.PyModule_GetDict(main), is_from_file ? 1 : 0);
  }());
  if (!value || !read_plain(value.get(), result)) {
    why = fmt::format("is the expression \"{:s}\", which failed: {:s}", text, python::take_error());
    return false;
  }
  return true;
}

bool evaluate_list(const list_t& list, bool is_from_file, value_t& result, std::string& why) {
  list_t numbers{list.numbers, {}};
  for (const auto& [position, text] : list.texts) {
    value_t element;
    if (!evaluate_text(text, is_from_file, element, why)) return false;
    const double* number = std::get_if<double>(&element);
    if (number == nullptr) {
      result = std::string();
      return true;
    }
    numbers.numbers.at(position) = *number;
  }
  result = std::move(numbers);
  return true;
}

}  // namespace

bool plain_number(std::string_view text, double& value) {
  const std::string_view digits = text.starts_with('+') && !text.starts_with("+-") ? text.substr(1) : text;
  // "inf" and "nan" alone are names in Python.
  if (digits.empty() || digits.find_first_not_of("0123456789.eE+-") != std::string_view::npos) {
    if (text == "float('inf')") value = inf;
    if (text == "-float('inf')" || text == "float('-inf')") value = -inf;
    if (text == "float('nan')") value = std::numeric_limits<double>::quiet_NaN();
    return text == "float('inf')" || text == "-float('inf')" || text == "float('-inf')" ||
           text == "float('nan')";
  }
  // Python has no whole number with a zero in front.
  const size_t first = digits.find_first_not_of('-');
  const bool is_whole = digits.find_first_of(".eE") == std::string_view::npos;
  if (is_whole && digits.size() - first > 1 && digits[first] == '0') return false;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return error == std::errc() && end == digits.data() + digits.size();
}

bool has_text(const value_t& value) noexcept {
  if (std::holds_alternative<std::string>(value)) return true;
  if (const auto* list = std::get_if<list_t>(&value)) return !list->texts.empty();
  if (const auto* rows = std::get_if<std::vector<list_t>>(&value)) {
    for (const list_t& row : *rows) {
      if (!row.texts.empty()) return true;
    }
  }
  return false;
}

bool evaluate(const value_t& value, bool is_from_file, value_t& result, std::string& why) {
  if (const auto* text = std::get_if<std::string>(&value))
    return evaluate_text(*text, is_from_file, result, why);
  if (const auto* list = std::get_if<list_t>(&value)) return evaluate_list(*list, is_from_file, result, why);
  std::vector<list_t> rows;
  for (const list_t& row : std::get<std::vector<list_t>>(value)) {
    value_t numbers;
    if (!evaluate_list(row, is_from_file, numbers, why)) return false;
    if (auto* list = std::get_if<list_t>(&numbers)) {
      rows.push_back(std::move(*list));
    } else {
      result = std::string();
      return true;
    }
  }
  result = std::move(rows);
  return true;
}

}  // namespace plexo
