#include "objects/queries.h"

#include "objects/unavailable.h"

namespace mirn2::query {

PyObject* axpb(PyObject*, PyObject*) { return not_available("TimeSeries.axpb"); }
PyObject* aypb(PyObject*, PyObject*) { return not_available("TimeSeries.aypb"); }
PyObject* avg(PyObject*, PyObject*) { return not_available("TimeSeries.avg"); }
PyObject* max(PyObject*, PyObject*) { return not_available("TimeSeries.max"); }
PyObject* min(PyObject*, PyObject*) { return not_available("TimeSeries.min"); }
PyObject* sum(PyObject*, PyObject*) { return not_available("TimeSeries.sum"); }
PyObject* time_bt(PyObject*, PyObject*) { return not_available("TimeSeries.time_bt"); }
PyObject* time_eq(PyObject*, PyObject*) { return not_available("TimeSeries.time_eq"); }
PyObject* time_gt(PyObject*, PyObject*) { return not_available("TimeSeries.time_gt"); }
PyObject* time_lt(PyObject*, PyObject*) { return not_available("TimeSeries.time_lt"); }
PyObject* time_ne(PyObject*, PyObject*) { return not_available("TimeSeries.time_ne"); }
PyObject* inspect(PyObject*, PyObject*) { return not_available("TimeSeries.inspect"); }
PyObject* pattern(PyObject*, PyObject*) { return not_available("TimeSeries.pattern"); }
PyObject* sort(PyObject*, PyObject*) { return not_available("TimeSeries.sort"); }
PyObject* index(PyObject*, PyObject*, PyObject*) { return not_available("TimeSeries.index"); }
PyObject* slice(PyObject*, PyObject*, PyObject*) { return not_available("TimeSeries.slice"); }

}  // namespace mirn2::query
