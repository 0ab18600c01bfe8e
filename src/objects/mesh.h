// kvalo.Mesh: the data of a surface, three Arrays.
#pragma once

#include <Python.h>

#include <cstdint>

#include "objects/array.h"
#include "objects/ref.h"

namespace mirn2 {

struct MeshObject {
  PyObject_HEAD uint64_t id64;
  uint64_t flags;
  PyObject* xdata;  // kvalo.Array or null; scripts may put anything into the three
  PyObject* ydata;
  PyObject* zdata;
};

extern PyTypeObject MeshType;

// A new Mesh with the three axes. Throws python_error.
Ref make_mesh(Samples x, Samples y, Samples z);

}  // namespace mirn2
