// PyInit_kvalo: the module's one exported entry.
#include <Python.h>

#include "containers/container_type.h"
#include "kvalo/export.h"
#include "models/model_type.h"
#include "models/result_type.h"
#include "module/function_table.h"
#include "module/lifecycle.h"
#include "objects/array.h"
#include "objects/frame.h"
#include "objects/mesh.h"
#include "objects/series_object.h"

#ifndef KVALO_BUILD_HASH
#define KVALO_BUILD_HASH "00000000"
#endif

namespace mirn2 {

namespace {

constexpr int api_version = 1013;

constexpr const char* banner = "Kvalo Python 3.11 module version 24.12.0 (" KVALO_BUILD_HASH
                               ")\n\nRecorded signals: loaded, computed on, drawn and exported.\n"
                               "Made by the Kvalo developers under the Apache License 2.0.";

int clear_module(PyObject*) {
  tear_down();
  return 0;
}

PyModuleDef definition = {
    .m_base = PyModuleDef_HEAD_INIT,
    .m_name = "kvalo",
    .m_doc = banner,
    .m_size = -1,
    .m_methods = nullptr,  // put in when the module is created
    .m_slots = nullptr,
    .m_traverse = nullptr,
    .m_clear = clear_module,
    .m_free = nullptr,
};

struct PublishedType {
  const char* name;
  PyTypeObject* type;
};

const PublishedType published[] = {
    {"Array", &ArrayType}, {"Container", &ContainerType}, {"Mesh", &MeshType},
    {"Model", &ModelType}, {"Result", &ResultType},       {"TimeSeries", &TimeSeriesType},
};

PyObject* create_module() {
  return guard(PyExc_ImportError, [&] {
    start_up();
    definition.m_methods = function_table();
    Ref module = checked(PyModule_Create2(&definition, api_version));
    for (const auto& [name, type] : published) {
      if (PyType_Ready(type) < 0) throw python_error();
    }
    for (const auto& [name, type] : published) {
      if (PyModule_AddObjectRef(module.get(), name, reinterpret_cast<PyObject*>(type)) < 0) {
        throw python_error();
      }
    }
    return module.release();
  });
}

}  // namespace

}  // namespace mirn2

extern "C" KVALO_EXPORT PyObject* PyInit_kvalo() { return mirn2::create_module(); }
