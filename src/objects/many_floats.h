// Many Python floats at once: tuples and lists of a million numbers are made in a third of the time that one
// PyFloat_FromDouble after the other takes.
//
// The interpreter takes memory for small objects from the system in arenas of a mebibyte, and touches them a
// page at a time: the page faults cost twice as much as making the floats. Room made for them beforehand
// comes in huge pages where the system has any.
//
// Call everything with the interpreter lock.
#pragma once

#include <Python.h>

#include <cstddef>
#include <vector>

#include "objects/ref.h"
#include "runtime/par.h"

namespace mirn2 {

// While it lives, the interpreter's new arenas come from a stock made for so many floats. Make nothing but
// floats meanwhile: a container may set off the garbage collector, and with it scripts that release the
// interpreter lock. What is left over goes back in the end. Few floats need no stock and get none.
class FloatRoom {
 public:
  explicit FloatRoom(size_t floats);
  ~FloatRoom();
  FloatRoom(const FloatRoom&) = delete;
  FloatRoom& operator=(const FloatRoom&) = delete;

 private:
  static void* take(void* room, size_t size);
  static void give_back(void* room, void* arena, size_t size);

  PyObjectArenaAllocator usual_;  // the interpreter's own: every arena comes from it and returns to it
  std::vector<void*> stock_;
  bool is_installed_ = false;
};

// A tuple of floats whose values are set after they are made, and before anybody else sees them.
// Throws python_error.
class FloatTuple {
 public:
  explicit FloatTuple(size_t floats);

  // Sets every item i to value_of(i), on all cores.
  template <typename ValueOf>
  void fill(ValueOf&& value_of) {
    constexpr size_t least = 1 << 15;  // worth a thread
    PyObject* const* const items = &PyTuple_GET_ITEM(tuple_.get(), 0);
    mirn3::par::ranges(static_cast<size_t>(PyTuple_GET_SIZE(tuple_.get())), least,
                       [&](size_t first, size_t last) {
                         for (size_t i = first; i < last; ++i) {
                           reinterpret_cast<PyFloatObject*>(items[i])->ob_fval = value_of(i);
                         }
                       });
  }
  PyObject* get() const noexcept { return tuple_.get(); }

 private:
  Ref tuple_;
};

}  // namespace mirn2
