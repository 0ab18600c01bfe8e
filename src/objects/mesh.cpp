// The Python type Mesh.
#include "objects/mesh.h"

#include <structmember.h>

#include <cstddef>

#include "objects/row.h"
#include "runtime/num.h"

namespace mirn2 {

namespace {

MeshObject* self_of(PyObject* self) { return reinterpret_cast<MeshObject*>(self); }

// ---- life and death ----

PyObject* mesh_new(PyTypeObject* type, PyObject*, PyObject*) {
  return guard(PyExc_Exception, [&] {
    Ref object = checked(type->tp_alloc(type, 0));
    self_of(object.get())->id64 = mirn3::num::create_id();
    self_of(object.get())->flags = 1;
    return object.release();
  });
}

int mesh_init(PyObject*, PyObject* args, PyObject*) {
  return guard(
      PyExc_Exception,
      [&] {
        if (PyTuple_GET_SIZE(args) > 0) fail(PyExc_Exception, "Constructor does not accept arguments");
        return 0;
      },
      -1);
}

int mesh_traverse(PyObject* object, visitproc visit, void* arg) {
  Py_VISIT(self_of(object)->xdata);
  Py_VISIT(self_of(object)->ydata);
  Py_VISIT(self_of(object)->zdata);
  return 0;
}

int mesh_clear(PyObject* object) {
  Py_CLEAR(self_of(object)->xdata);
  Py_CLEAR(self_of(object)->ydata);
  Py_CLEAR(self_of(object)->zdata);
  return 0;
}

void mesh_dealloc(PyObject* object) {
  PyObject_GC_UnTrack(object);
  mesh_clear(object);
  Py_TYPE(object)->tp_free(object);
}

// ---- text ----

uint64_t axis_size(PyObject* axis, const char* name) {
  const ArrayObject* array = as_array(axis);
  if (array == nullptr) fail(PyExc_TypeError, "'{:s}' of the kvalo.Mesh object must be a kvalo.Array", name);
  return array->column->size();
}

PyObject* mesh_repr(PyObject* object) {
  return guard(PyExc_Exception, [&] {
    const MeshObject* self = self_of(object);
    if (self->ydata == nullptr || self->ydata == Py_None) return to_unicode("Empty mesh");
    const uint64_t x = axis_size(self->xdata, "xdata");
    const uint64_t z = axis_size(self->zdata, "zdata");
    return to_unicode(fmt::format("{},{},{}", x, z, axis_size(self->ydata, "ydata")));
  });
}

// ---- tables ----

PyMemberDef mesh_members[] = {
    {"id64", T_ULONGLONG, offsetof(MeshObject, id64), READONLY, nullptr},
    {"flags", T_ULONGLONG, offsetof(MeshObject, flags), 0, nullptr},
    {"xdata", T_OBJECT, offsetof(MeshObject, xdata), 0, nullptr},
    {"ydata", T_OBJECT, offsetof(MeshObject, ydata), 0, nullptr},
    {"zdata", T_OBJECT, offsetof(MeshObject, zdata), 0, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

}  // namespace

Ref make_mesh(Samples x, Samples y, Samples z) {
  Ref mesh = checked(PyObject_CallNoArgs(reinterpret_cast<PyObject*>(&MeshType)));
  self_of(mesh.get())->xdata = make_array(std::move(x)).release();
  self_of(mesh.get())->ydata = make_array(std::move(y)).release();
  self_of(mesh.get())->zdata = make_array(std::move(z)).release();
  return mesh;
}

PyTypeObject MeshType = {
    .ob_base = {PyObject_HEAD_INIT(nullptr) 0},
    .tp_name = "kvalo.Mesh",
    .tp_basicsize = sizeof(MeshObject),
    .tp_dealloc = mesh_dealloc,
    .tp_repr = mesh_repr,
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC,
    .tp_doc = signature::docstring<"Mesh", "()", "Kvalo mesh object">.data(),
    .tp_traverse = mesh_traverse,
    .tp_clear = mesh_clear,
    .tp_members = mesh_members,
    .tp_init = mesh_init,
    .tp_new = mesh_new,
};

}  // namespace mirn2
