// The interpreter as the runtime sees it: a table of functions and objects that the module fills once
// per process, so that this library needs no interpreter to link or to be tested.
//
// Objects are opaque here (void*). The names are the interpreter's own. Variadic functions keep the
// interpreter's calling convention.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "kvalo/export.h"
#include "runtime/python_lock.h"

namespace mirn3::python {

using object = void*;

// name, result, arguments; in the order in which the module fills them.
#define MIRN3_PYTHON_TABLE(F, D)                                           \
  F(Py_DecRef, void, (object))                                             \
  F(Py_IncRef, void, (object))                                             \
  D(PyExc_Exception)                                                       \
  D(PyExc_RuntimeError)                                                    \
  F(PyErr_Clear, void, ())                                                 \
  F(PyErr_Occurred, object, ())                                            \
  F(PyErr_Fetch, void, (object*, object*, object*))                        \
  F(PyErr_Print, void, ())                                                 \
  F(PyErr_Restore, void, (object, object, object))                         \
  F(PyErr_SetString, void, (object, const char*))                          \
  F(PyGILState_Ensure, int, ())                                            \
  F(PyGILState_Release, void, (int))                                       \
  F(Py_GetVersion, const char*, ())                                        \
  F(PyRun_SimpleFileExFlags, int, (void*, const char*, int, void*))        \
  F(PyRun_SimpleStringFlags, int, (const char*, void*))                    \
  F(PyImport_Import, object, (object))                                     \
  F(PyImport_ImportModule, object, (const char*))                          \
  F(PyImport_AddModule, object, (const char*))                             \
  F(PyModule_AddObject, int, (object, const char*, object))                \
  F(PyModule_Create2, object, (void*, int))                                \
  F(PyModule_GetDict, object, (object))                                    \
  F(PyCapsule_New, object, (void*, const char*, void (*)(object)))         \
  F(PyDict_New, object, ())                                                \
  F(PyDict_GetItemString, object, (object, const char*))                   \
  F(PyDict_SetItemString, int, (object, const char*, object))              \
  F(PyDict_Size, ptrdiff_t, (object))                                      \
  F(PyDict_Next, int, (object, ptrdiff_t*, object*, object*))              \
  D(PyFloat_Type)                                                          \
  F(PyFloat_AsDouble, double, (object))                                    \
  F(PyFloat_FromDouble, object, (double))                                  \
  F(PyLong_AsLong, long, (object))                                         \
  F(PyLong_AsLongLong, long long, (object))                                \
  F(PyLong_AsUnsignedLongLong, unsigned long long, (object))               \
  F(PyLong_FromLong, object, (long))                                       \
  F(PyLong_FromLongLong, object, (long long))                              \
  F(PyLong_FromUnsignedLong, object, (unsigned long))                      \
  F(PyLong_FromUnsignedLongLong, object, (unsigned long long))             \
  F(PyList_New, object, (ptrdiff_t))                                       \
  F(PyList_Append, int, (object, object))                                  \
  F(PyList_GetItem, object, (object, ptrdiff_t))                           \
  F(PyList_SetItem, int, (object, ptrdiff_t, object))                      \
  F(PyList_Size, ptrdiff_t, (object))                                      \
  F(PyTuple_New, object, (ptrdiff_t))                                      \
  F(PyTuple_GetItem, object, (object, ptrdiff_t))                          \
  F(PyTuple_SetItem, int, (object, ptrdiff_t, object))                     \
  F(PyTuple_Size, ptrdiff_t, (object))                                     \
  F(Py_BuildValue, object, (const char*, ...))                             \
  F(PyArg_ParseTuple, int, (object, const char*, ...))                     \
  F(PyType_GenericNew, object, (object, object, object))                   \
  F(PyType_Ready, int, (object))                                           \
  F(PySys_GetObject, object, (const char*))                                \
  F(PySys_SetObject, int, (const char*, object))                           \
  F(PySys_WriteStdout, void, (const char*, ...))                           \
  F(PyBytes_AsString, char*, (object))                                     \
  F(PyUnicode_AsEncodedString, object, (object, const char*, const char*)) \
  F(PyUnicode_FromString, object, (const char*))                           \
  F(PyObject_GetAttrString, object, (object, const char*))                 \
  F(PyObject_HasAttrString, int, (object, const char*))                    \
  F(PyObject_SetAttrString, int, (object, const char*, object))            \
  F(PyObject_Repr, object, (object))                                       \
  F(PyObject_Str, object, (object))                                        \
  F(PyObject_Call, object, (object, object, object))                       \
  F(PyObject_CallMethod, object, (object, const char*, const char*, ...))

struct table_t {
#define MIRN3_FUNCTION(name, result, arguments) result(*name) arguments = nullptr;
#define MIRN3_OBJECT(name) object name = nullptr;
  MIRN3_PYTHON_TABLE(MIRN3_FUNCTION, MIRN3_OBJECT)
#undef MIRN3_FUNCTION
#undef MIRN3_OBJECT
};

// All null until the module has filled it; is_filled() tests Py_DecRef.
MIRN3_API extern table_t table;
MIRN3_API bool is_filled() noexcept;

// Writes the text and a line feed to the script's standard output, whole however long it is, from any
// thread. Without an interpreter nothing is written.
MIRN3_API void print_line(std::string_view text);

// The pending Python error as text ("ValueError: ..."), which is cleared; empty when there is none.
// The caller holds the interpreter lock.
MIRN3_API std::string take_error();

// UTF-8 of any object: itself for a str, else str(object). Throws std::runtime_error with
// "Error converting Python string to standard string", "Error converting Python object to string",
// "Error encoding Python string to utf-8", or "Error converting Python object to string: " and the
// error that is pending afterwards. The caller holds the interpreter lock.
MIRN3_API std::string to_string(object value);

// The interpreter's services as one object that is set up once the table is filled.
class MIRN3_API Wrapper {
 public:
  void set_up();
  bool ready() const noexcept { return ready_; }

 private:
  bool ready_ = false;
};
MIRN3_API Wrapper& wrap();

}  // namespace mirn3::python
