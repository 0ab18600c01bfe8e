#include "objects/mesh.h"

#include "objects/unavailable.h"

namespace mirn2 {

namespace {

PyObject* refuse_new(PyTypeObject*, PyObject*, PyObject*) { return not_available("Mesh"); }

}  // namespace

PyTypeObject MeshType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.Mesh",
    .tp_basicsize = sizeof(PyObject),
    .tp_flags = Py_TPFLAGS_DEFAULT,
    .tp_doc = "Kvalo mesh object",
    .tp_new = refuse_new,
};

}  // namespace mirn2
