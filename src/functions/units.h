// Module function: conversion between physical units.
#pragma once

#include <Python.h>

namespace mirn2::fn {

PyObject* convert(PyObject*, PyObject* args);

}  // namespace mirn2::fn
