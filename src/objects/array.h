// kvalo.Array: the script's view of one sample vector.
#pragma once

#include <Python.h>

#include "objects/column.h"
#include "objects/frame.h"
#include "objects/ref.h"

namespace mirn2 {

struct ArrayObject {
  PyObject_HEAD uint64_t aux;  // carried along by copies, not interpreted
  ColumnPtr column;            // never null
};

extern PyTypeObject ArrayType;

// The Array itself when the object is one (or a subtype), else null; accepts null.
ArrayObject* as_array(PyObject* object) noexcept;

// A new Array that shows the column, or a new column of these samples. Throws python_error.
Ref make_array(ColumnPtr column);
Ref make_array(Samples samples);

// Samples from a list or tuple, each item converted with float(). Throws python_error at the first
// item that cannot be converted.
Samples samples_from_sequence(PyObject* sequence);

// Replaces the values of a column by those that compute(values, out) writes to `out`, without the interpreter
// lock. They go to a buffer of their own first: until it is done, everybody sees the values as they were.
template <typename Compute>
void change_in_place(Column& column, Compute&& compute) {
  const Samples values = column.hold();
  Samples changed;
  changed.resize_for_overwrite(values.size());
  without_gil([&] { compute(values.span(), changed.span()); });
  column.overwrite(std::move(changed));
}

// Index of an item: negative ones count from the end. Throws IndexError "Index out of bounds".
uint64_t checked_index(Py_ssize_t index, uint64_t size);

}  // namespace mirn2
