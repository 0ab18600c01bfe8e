// Methods of kvalo.TimeSeries that answer questions about the samples, cut them or change them in place.
// Their rows stand with the type.
#pragma once

#include "objects/row.h"

namespace mirn2::query {

void axpb(PyObject* self, PyObject* gain, PyObject* offset);
void aypb(PyObject* self, PyObject* gain, PyObject* offset);
double avg(PyObject* self);
double max(PyObject* self);
double min(PyObject* self);
double sum(PyObject* self);
PyObject* time_bt(PyObject* self, Items limits);
PyObject* time_eq(PyObject* self, Items value);
PyObject* time_gt(PyObject* self, Items value);
PyObject* time_lt(PyObject* self, Items value);
PyObject* time_ne(PyObject* self, Items value);
void inspect(PyObject* self);
uint64_t pattern(PyObject* self, Items times);
void sort(PyObject* self);
uint64_t index(PyObject* self, double value, const char* op);
Ref slice(PyObject* self, double tini, double tend);

}  // namespace mirn2::query
