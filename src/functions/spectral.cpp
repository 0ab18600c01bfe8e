#include "functions/spectral.h"

#include "objects/unavailable.h"

namespace mirn2::fn {

PyObject* fftdata(PyObject*, PyObject*, PyObject*) { return not_available("fftdata"); }
PyObject* heatmapdata(PyObject*, PyObject*, PyObject*) { return not_available("heatmapdata"); }
PyObject* histdata(PyObject*, PyObject*, PyObject*) { return not_available("histdata"); }

}  // namespace mirn2::fn
