// Ref owns one reference to a Python object; a plain PyObject* is always borrowed.
#pragma once

#include <Python.h>

#include <utility>

namespace mirn2 {

class Ref {
 public:
  Ref() = default;
  static Ref steal(PyObject* object) noexcept { return Ref(object); }
  static Ref share(PyObject* object) noexcept {
    Py_XINCREF(object);
    return Ref(object);
  }

  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Ref& operator=(Ref&& other) noexcept {
    Ref dropped(std::exchange(object_, std::exchange(other.object_, nullptr)));
    return *this;
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  ~Ref() { Py_XDECREF(object_); }

  PyObject* get() const noexcept { return object_; }
  PyObject* release() noexcept { return std::exchange(object_, nullptr); }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  explicit Ref(PyObject* object) noexcept : object_(object) {}
  PyObject* object_ = nullptr;
};

}  // namespace mirn2
