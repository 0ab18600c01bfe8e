// The types that this version publishes by name only.
#include "models/unavailable_types.h"

#include "objects/frame.h"

namespace mirn2 {

namespace {

template <Name name>
PyObject* refuse_new(PyTypeObject*, PyObject*, PyObject*) {
  return report(PyExc_NotImplementedError, "kvalo.{:s} is not available in this version", name.text);
}

}  // namespace

PyTypeObject ModelType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.Model",
    .tp_basicsize = sizeof(PyObject),
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE,
    .tp_doc = "Kvalo model object",
    .tp_new = refuse_new<"Model">,
};

PyTypeObject ResultType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.Result",
    .tp_basicsize = sizeof(PyObject),
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE,
    .tp_doc = "Kvalo simulation result object",
    .tp_new = refuse_new<"Result">,
};

}  // namespace mirn2
