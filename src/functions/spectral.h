// Module functions: spectrum, heatmap and histogram data.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* fftdata(PyObject*, PyObject* args, PyObject* keywords);
PyObject* heatmapdata(PyObject*, PyObject* args, PyObject* keywords);
PyObject* histdata(PyObject*, PyObject* args, PyObject* keywords);

}  // namespace mirn2::fn
