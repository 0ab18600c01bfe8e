// kvalo.Container: the script object through which a loaded source is reached.
#pragma once

#include <Python.h>

#include <memory>
#include <string>

#include "containers/container.h"
#include "objects/ref.h"

namespace mirn2 {

// What construction stores in addition to the container.
struct ContainerRequest {
  std::string path;
  std::string plugin;
  double tini = earliest_time;
  double tend = latest_time;
  unsigned int samples = 300;  // of a live source: each variable keeps at least so many
};

struct ContainerObject {
  PyObject_HEAD PyObject* dict;  // __dict__: one attribute per variable
  uint64_t id64;
  uint64_t flags;
  ContainerRequest* request;
  std::shared_ptr<Container>* container;  // null until creation succeeds
};

extern PyTypeObject ContainerType;

// The object as a container if it is one (or a subtype), else null; accepts null.
ContainerObject* as_container(PyObject* object) noexcept;

// A new script object for a container that was made without one. Throws python_error.
Ref show_container(std::shared_ptr<Container> container, ContainerRequest request = {});

// Reads another file into a container and shows its new variables. Throws mirn3::exc::error_t, python_error.
void merge_file(ContainerObject* container, const std::string& path);

}  // namespace mirn2
