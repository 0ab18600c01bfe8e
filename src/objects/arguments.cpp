// Puts a call's arguments in their places, or packs them for the interpreter's parser.
#include "objects/arguments.h"

#include <algorithm>
#include <cstring>

namespace mirn2 {

Ref Call::tuple() const {
  Ref tuple = checked(PyTuple_New(given));
  for (Py_ssize_t i = 0; i < given; ++i) PyTuple_SET_ITEM(tuple.get(), i, Py_NewRef(items[i]));
  return tuple;
}

Ref Call::dict() const {
  if (keywords == nullptr) return Ref();
  Ref dict = checked(PyDict_New());
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(keywords); ++i) {
    if (PyDict_SetItem(dict.get(), PyTuple_GET_ITEM(keywords, i), items[given + i]) < 0) throw python_error();
  }
  return dict;
}

UnpackedCall::UnpackedCall(PyObject* args, PyObject* keywords)
    : items_(&PyTuple_GET_ITEM(args, 0), &PyTuple_GET_ITEM(args, 0) + PyTuple_GET_SIZE(args)),
      given_(PyTuple_GET_SIZE(args)) {
  if (keywords == nullptr) return;
  names_ = checked(PyTuple_New(PyDict_GET_SIZE(keywords)));
  Py_ssize_t position = 0;
  PyObject *name, *value;
  for (Py_ssize_t i = 0; PyDict_Next(keywords, &position, &name, &value) != 0; ++i) {
    PyTuple_SET_ITEM(names_.get(), i, Py_NewRef(name));
    items_.push_back(value);
  }
}

namespace {

size_t place_of(PyObject* keyword, std::span<const char* const> names) noexcept {
  if (!PyUnicode_Check(keyword)) return names.size();  // a constructor's may be anything
  const auto same = [keyword](const char* name) {
    return *name != '\0' && PyUnicode_CompareWithASCIIString(keyword, name) == 0;
  };
  return static_cast<size_t>(std::ranges::find_if(names, same) - names.begin());
}

}  // namespace

bool arrange(const Call& call, std::span<const char* const> names, size_t required,
             std::span<PyObject*> places) noexcept {
  const auto given = static_cast<size_t>(call.given);
  if (given > places.size()) return false;
  const auto rest = std::copy_n(call.items, given, places.begin());
  std::fill(rest, places.end(), nullptr);
  const Py_ssize_t named = call.keywords != nullptr ? PyTuple_GET_SIZE(call.keywords) : 0;
  for (Py_ssize_t i = 0; i < named; ++i) {
    const size_t place = place_of(PyTuple_GET_ITEM(call.keywords, i), names);
    if (place == names.size() || places[place] != nullptr) return false;
    places[place] = call.items[call.given + i];
  }
  return std::find(places.begin(), places.begin() + static_cast<Py_ssize_t>(required), nullptr) ==
         places.begin() + static_cast<Py_ssize_t>(required);
}

bool take(PyObject* item, const char*& value) noexcept {
  if (!PyUnicode_CheckExact(item)) return false;
  Py_ssize_t size = 0;
  const char* text = PyUnicode_AsUTF8AndSize(item, &size);
  if (text == nullptr) PyErr_Clear();
  if (text == nullptr || std::strlen(text) != static_cast<size_t>(size)) return false;
  value = text;
  return true;
}

}  // namespace mirn2
