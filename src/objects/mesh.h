// kvalo.Mesh: the data of a surface, three Arrays.
#pragma once

#include <Python.h>

#include <cstdint>

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

}  // namespace mirn2
