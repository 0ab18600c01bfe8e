// Methods of kvalo.TimeSeries that answer questions about the samples, cut them or change them in place.
#pragma once

#include <Python.h>

namespace mirn2::query {

PyObject* axpb(PyObject* self, PyObject* args);
PyObject* aypb(PyObject* self, PyObject* args);
PyObject* avg(PyObject* self, PyObject*);
PyObject* max(PyObject* self, PyObject*);
PyObject* min(PyObject* self, PyObject*);
PyObject* sum(PyObject* self, PyObject*);
PyObject* time_bt(PyObject* self, PyObject* args);
PyObject* time_eq(PyObject* self, PyObject* args);
PyObject* time_gt(PyObject* self, PyObject* args);
PyObject* time_lt(PyObject* self, PyObject* args);
PyObject* time_ne(PyObject* self, PyObject* args);
PyObject* inspect(PyObject* self, PyObject*);
PyObject* pattern(PyObject* self, PyObject* args);
PyObject* sort(PyObject* self, PyObject*);
PyObject* index(PyObject* self, PyObject* args, PyObject* keywords);
PyObject* slice(PyObject* self, PyObject* args, PyObject* keywords);

}  // namespace mirn2::query
