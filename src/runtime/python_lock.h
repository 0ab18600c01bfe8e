// The interpreter lock for a scope, from any thread and without the interpreter's headers.
#pragma once

#include "kvalo/export.h"

namespace mirn3::python {

// Holds the interpreter lock from here to the end of the scope, however it ends; may be nested. Does nothing
// in a process without an interpreter (python.h: the table is not filled).
class MIRN3_API Lock {
 public:
  Lock();
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int state_ = 0;
  bool held_ = false;
};

}  // namespace mirn3::python
