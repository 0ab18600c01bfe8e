// kvalo.Array: the script's view of one sample vector.
#pragma once

#include <Python.h>

#include <memory>
#include <span>

#include "kvalo/shared_vector.h"
#include "objects/ref.h"

namespace mirn2 {

class TimeSeries;
using Samples = mirn3::shared_vector<double>;

struct ArrayObject {
  PyObject_HEAD uint64_t aux;  // carried along by copies, not interpreted
  Samples data;
  Py_ssize_t views;  // buffer views that are held now
  bool borrows;      // the buffer is another Array's until one of the two is written: see lending.h
  std::weak_ptr<TimeSeries> times_of;  // the record whose common time stamps it shows
};

extern PyTypeObject ArrayType;

// The Array itself when the object is one (or a subtype), else null; accepts null.
ArrayObject* as_array(PyObject* object) noexcept;

// A new Array that shares the vector, on purpose: a borrowed one must not get here. Throws python_error.
Ref make_array(Samples samples);

// Samples from a list or tuple, each item converted with float(). Throws python_error at the first
// item that cannot be converted.
Samples samples_from_sequence(PyObject* sequence);

// Index of an item: negative ones count from the end. Throws IndexError "Index out of bounds".
uint64_t checked_index(Py_ssize_t index, uint64_t size);

}  // namespace mirn2
