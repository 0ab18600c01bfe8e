// The Python type Result.
#include "models/result_type.h"

#include <structmember.h>

#include <cstddef>
#include <cstdint>

#include "objects/row.h"

namespace mirn2 {

namespace {

constexpr uint64_t initial_flags = 9;

struct ResultObject {
  PyObject_HEAD PyObject* dict;  // __dict__: the signals, and the systems within
  uint64_t flags;
};

ResultObject* self_of(PyObject* self) { return reinterpret_cast<ResultObject*>(self); }

PyObject* result_new(PyTypeObject* type, PyObject*, PyObject*) {
  return guard(PyExc_Exception, [&] {
    Ref object = checked(type->tp_alloc(type, 0));
    self_of(object.get())->flags = initial_flags;
    return object.release();
  });
}

// Keywords are not looked at.
int result_init(PyObject*, PyObject* args, PyObject*) {
  return guard(
      PyExc_Exception,
      [&] {
        if (PyTuple_GET_SIZE(args) > 0) fail(PyExc_Exception, "Constructor accepts no argument");
        return 0;
      },
      -1);
}

int result_traverse(PyObject* object, visitproc visit, void* arg) {
  Py_VISIT(self_of(object)->dict);
  return 0;
}

int result_clear(PyObject* object) {
  Py_CLEAR(self_of(object)->dict);
  return 0;
}

void result_dealloc(PyObject* object) {
  PyObject_GC_UnTrack(object);
  result_clear(object);
  Py_TYPE(object)->tp_free(object);
}

PyObject* result_repr(PyObject*) { return PyUnicode_FromString(""); }

PyMemberDef result_members[] = {
    {"flags", T_ULONGLONG, offsetof(ResultObject, flags), 0, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

}  // namespace

PyTypeObject ResultType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.Result",
    .tp_basicsize = sizeof(ResultObject),
    .tp_dealloc = result_dealloc,
    .tp_repr = result_repr,
    .tp_getattro = PyObject_GenericGetAttr,
    .tp_setattro = PyObject_GenericSetAttr,
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC,
    .tp_doc = signature::docstring<"Result", "()", "Kvalo simulation result object">.data(),
    .tp_traverse = result_traverse,
    .tp_clear = result_clear,
    .tp_members = result_members,
    .tp_getset = instance_dict_getset,
    .tp_dictoffset = offsetof(ResultObject, dict),
    .tp_init = result_init,
    .tp_new = result_new,
};

}  // namespace mirn2
