// Trying something first where a crash does no harm.
//
// Debian's HDF5 library runs past its buffers on some damaged files: it reads its own structures without
// checking all of them. Whoever opens such a file should get an exception, not lose a session.
#pragma once

#include <functional>

namespace mirn2::rd::hdf5 {

// Runs the task in a copy of this process, and returns when it has ended there. False when it crashed or took
// longer than a minute. The task must not log, print, touch the interpreter or start threads. True as well
// where no copy can be made: the attempt is a precaution.
bool survives(const std::function<void()>& task);

}  // namespace mirn2::rd::hdf5
