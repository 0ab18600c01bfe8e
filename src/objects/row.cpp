// The guard around every call that a row describes.
#include "objects/row.h"

namespace mirn2::rows {

PyObject* guarded(PyObject* failures, Run* run, PyObject* self, const Call& call) noexcept {
  return guard(failures, [&] { return run(self, call); });
}

int guarded_init(PyObject* failures, Run* run, PyObject* self, PyObject* args, PyObject* keywords) noexcept {
  const auto work = [&] {
    const UnpackedCall unpacked(args, keywords);
    const Ref none = Ref::steal(run(self, unpacked.call()));
    return 0;
  };
  return guard(failures, work, -1);
}

}  // namespace mirn2::rows
