// Fills the runtime's table with the interpreter's functions.
#include "module/interpreter_table.h"

#include "runtime/python.h"

// After the runtime's header: the interpreter's macros must not rename the table's entries.
#include <Python.h>

namespace mirn2 {

namespace {

template <typename Slot, typename Function>
void fill(Slot& slot, Function* function) {
  static_assert(sizeof(Slot) == sizeof(function));
  slot = reinterpret_cast<Slot>(function);
}

}  // namespace

void fill_interpreter_table() {
  using mirn3::python::table;
  if (mirn3::python::is_filled()) return;
  fill(table.Py_DecRef, Py_DecRef);
  fill(table.Py_IncRef, Py_IncRef);
  table.PyExc_Exception = PyExc_Exception;
  table.PyExc_RuntimeError = PyExc_RuntimeError;
  fill(table.PyErr_Clear, PyErr_Clear);
  fill(table.PyErr_Occurred, PyErr_Occurred);
  fill(table.PyErr_Fetch, PyErr_Fetch);
  fill(table.PyErr_Print, PyErr_Print);
  fill(table.PyErr_Restore, PyErr_Restore);
  fill(table.PyErr_SetString, PyErr_SetString);
  fill(table.PyGILState_Ensure, PyGILState_Ensure);
  fill(table.PyGILState_Release, PyGILState_Release);
  fill(table.Py_GetVersion, Py_GetVersion);
  fill(table.PyRun_SimpleFileExFlags, PyRun_SimpleFileExFlags);
  fill(table.PyRun_SimpleStringFlags, PyRun_SimpleStringFlags);
  fill(table.PyImport_Import, PyImport_Import);
  fill(table.PyImport_ImportModule, PyImport_ImportModule);
  fill(table.PyImport_AddModule, PyImport_AddModule);
  fill(table.PyModule_AddObject, PyModule_AddObject);
  fill(table.PyModule_Create2, PyModule_Create2);
  fill(table.PyModule_GetDict, PyModule_GetDict);
  fill(table.PyCapsule_New, PyCapsule_New);
  fill(table.PyDict_New, PyDict_New);
  fill(table.PyDict_GetItemString, PyDict_GetItemString);
  fill(table.PyDict_SetItemString, PyDict_SetItemString);
  fill(table.PyDict_Size, PyDict_Size);
  fill(table.PyDict_Next, PyDict_Next);
  table.PyFloat_Type = &PyFloat_Type;
  fill(table.PyFloat_AsDouble, PyFloat_AsDouble);
  fill(table.PyFloat_FromDouble, PyFloat_FromDouble);
  fill(table.PyLong_AsLong, PyLong_AsLong);
  fill(table.PyLong_AsLongLong, PyLong_AsLongLong);
  fill(table.PyLong_AsUnsignedLongLong, PyLong_AsUnsignedLongLong);
  fill(table.PyLong_FromLong, PyLong_FromLong);
  fill(table.PyLong_FromLongLong, PyLong_FromLongLong);
  fill(table.PyLong_FromUnsignedLong, PyLong_FromUnsignedLong);
  fill(table.PyLong_FromUnsignedLongLong, PyLong_FromUnsignedLongLong);
  fill(table.PyList_New, PyList_New);
  fill(table.PyList_Append, PyList_Append);
  fill(table.PyList_GetItem, PyList_GetItem);
  fill(table.PyList_SetItem, PyList_SetItem);
  fill(table.PyList_Size, PyList_Size);
  fill(table.PyTuple_New, PyTuple_New);
  fill(table.PyTuple_GetItem, PyTuple_GetItem);
  fill(table.PyTuple_SetItem, PyTuple_SetItem);
  fill(table.PyTuple_Size, PyTuple_Size);
  fill(table.Py_BuildValue, Py_BuildValue);
  fill(table.PyArg_ParseTuple, PyArg_ParseTuple);
  fill(table.PyType_GenericNew, PyType_GenericNew);
  fill(table.PyType_Ready, PyType_Ready);
  fill(table.PySys_GetObject, PySys_GetObject);
  fill(table.PySys_SetObject, PySys_SetObject);
  fill(table.PySys_WriteStdout, PySys_WriteStdout);
  fill(table.PyBytes_AsString, PyBytes_AsString);
  fill(table.PyUnicode_AsEncodedString, PyUnicode_AsEncodedString);
  fill(table.PyUnicode_FromString, PyUnicode_FromString);
  fill(table.PyObject_GetAttrString, PyObject_GetAttrString);
  fill(table.PyObject_HasAttrString, PyObject_HasAttrString);
  fill(table.PyObject_SetAttrString, PyObject_SetAttrString);
  fill(table.PyObject_Repr, PyObject_Repr);
  fill(table.PyObject_Str, PyObject_Str);
  fill(table.PyObject_Call, PyObject_Call);
  fill(table.PyObject_CallMethod, PyObject_CallMethod);
  mirn3::python::wrap().set_up();
}

}  // namespace mirn2
