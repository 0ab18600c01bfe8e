#include "module/host_functions.h"

#include <cstring>

#include "objects/frame.h"
#include "runtime/ilc.h"

namespace mirn2::fn {

namespace {

namespace ilc = mirn3::ilc;

ilc::Channel& channel() {
  if (ilc::channel == nullptr) fail(PyExc_RuntimeError, "kvalo has been shut down in this process");
  return *ilc::channel;
}

}  // namespace

PyObject* callback(PyObject*, PyObject* args) {
  return guard(PyExc_RuntimeError, [&]() -> PyObject* {
    PyObject* capsule = PyTuple_GET_SIZE(args) > 0 ? PyTuple_GET_ITEM(args, 0) : nullptr;
    if (capsule == nullptr || !PyCapsule_CheckExact(capsule)) Py_RETURN_NONE;
    void* handler = PyCapsule_GetPointer(capsule, nullptr);
    if (handler == nullptr) throw python_error();
    channel().install(*static_cast<const ilc::handler_t*>(handler));
    Py_RETURN_NONE;
  });
}

PyObject* exit(PyObject*, PyObject*) {
  return guard(PyExc_RuntimeError, [&]() -> PyObject* {
    channel().send("app_exit", std::make_shared<dto_exit_t>());
    check_python();  // a handler written in Python may have failed
    Py_RETURN_NONE;
  });
}

PyObject* selfie(PyObject*, PyObject* args, PyObject* kwargs) {
  return guard(PyExc_ValueError, [&]() -> PyObject* {
    static const char* keywords[] = {"path", nullptr};
    const char* path = nullptr;
    if (!PyArg_ParseTupleAndKeywords(args, kwargs, "s", const_cast<char**>(keywords), &path)) {
      throw python_error();
    }
    auto record = std::make_shared<dto_misc_t>();
    const size_t length = std::strlen(path);
    if (length >= sizeof(record->text)) {
      fail(PyExc_ValueError, "The path must be shorter than {:d} bytes ({:d} given)", sizeof(record->text),
           length);
    }
    record->key = ilc::name_hash("path");
    std::memcpy(record->text, path, length + 1);
    channel().send("app_selfie", std::move(record));
    check_python();
    Py_RETURN_NONE;
  });
}

}  // namespace mirn2::fn
