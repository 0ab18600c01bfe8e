// The operators and comparisons of kvalo.Array.
#pragma once

#include <Python.h>

#include "kernels/elements.h"
#include "objects/array.h"

namespace mirn2 {

extern PyNumberMethods array_number;
PyObject* array_richcompare(PyObject* a, PyObject* b, int op);

// Whether the object is an Array by its type's own name; an operand of a subclass is none.
bool is_array_operand(PyObject* object) noexcept;

// A new Array with f of every element. Of two Arrays of different length the shorter one counts as
// continued with 0.0. Operands of other types: NotImplemented.
PyObject* array_binary(PyObject* a, PyObject* b, kernels::Operator which) noexcept;
PyObject* array_unary(PyObject* a, const kernels::Unary& f) noexcept;

}  // namespace mirn2
