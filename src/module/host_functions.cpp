// Script functions that install, use and end the host.
#include "module/host_functions.h"

#include "hostlink/send.h"
#include "hostlink/text_field.h"
#include "objects/frame.h"

namespace mirn2::fn {

namespace ilc = mirn3::ilc;

PyObject* callback(PyObject*, PyObject* args) {
  return guard(PyExc_RuntimeError, [&]() -> PyObject* {
    PyObject* capsule = PyTuple_GET_SIZE(args) > 0 ? PyTuple_GET_ITEM(args, 0) : nullptr;
    if (capsule == nullptr || !PyCapsule_CheckExact(capsule)) Py_RETURN_NONE;
    void* handler = PyCapsule_GetPointer(capsule, nullptr);
    if (handler == nullptr) throw python_error();
    hostlink::channel().install(*static_cast<const ilc::handler_t*>(handler));
    Py_RETURN_NONE;
  });
}

PyObject* exit(PyObject*, PyObject*) {
  return guard(PyExc_RuntimeError, [&]() -> PyObject* {
    hostlink::send_record("app_exit", std::make_shared<dto_exit_t>());
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
    hostlink::send<dto_misc_t>({"app_selfie"}, [&](dto_misc_t& record) {
      record.key = ilc::name_hash("path");
      hostlink::put_text(record.text, path, "path");
    });
    Py_RETURN_NONE;
  });
}

}  // namespace mirn2::fn
