// An owned reference to an object of the interpreter, known through the runtime's table alone.
#pragma once

#include "runtime/python.h"

namespace plexo {

class Ref {
 public:
  explicit Ref(mirn3::python::object owned) noexcept : object_(owned) {}
  ~Ref() {
    if (object_ != nullptr) mirn3::python::table.Py_DecRef(object_);
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;

  mirn3::python::object get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  mirn3::python::object object_;
};

}  // namespace plexo
