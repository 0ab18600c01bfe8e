// Trying something first where a crash does no harm.
//
// Debian's HDF5 library runs past its buffers on some damaged files: it reads its own structures without
// checking all of them. Whoever opens such a file should get an exception, not lose a session.
#pragma once

#include <cstdint>
#include <functional>

namespace mirn2::rd::hdf5 {

// Runs the task in a copy of this process, and returns when it has ended there. False when it crashed, left
// something of the library open (which then fails at the end of the process), or ran in circles: took more
// processor time than work on a file of that size can need, which is five seconds and one for every 8 MB.
// Waiting for a slow disk is no such time. The task must not log, print, touch the interpreter or start
// threads. True as well where no copy can be made: the attempt is a precaution.
bool survives(uint64_t file_size, const std::function<void()>& task);

}  // namespace mirn2::rd::hdf5
