// The operators and comparisons of kvalo.TimeSeries.
#pragma once

#include <Python.h>

#include <string_view>

#include "kernels/elements.h"
#include "objects/time_series.h"

namespace mirn2 {

extern PyNumberMethods series_number;
PyObject* series_richcompare(PyObject* a, PyObject* b, int op);

// Whether the object is a TimeSeries by its type's own name; an operand of a subclass is none.
bool is_series_operand(PyObject* object) noexcept;

// f(a, b) on the common time base of both, each held at its last sample: see kernels::Held. The result has
// no script of its own yet. Refused, as "binary_op", while a real-time connection is active.
Ref combine(TimeSeriesObject* a, TimeSeriesObject* b, const kernels::Binary& f);

// f of every value, with the script "{label}({script})". Refused as "unary_op".
PyObject* unary_op(TimeSeriesObject* a, const kernels::Unary& f) noexcept;

}  // namespace mirn2
