// Tries a task in a copy of the process first, where a crash does no harm.
//
// Debian's HDF5 library runs past its buffers on some damaged files: it reads its own structures without
// checking all of them. To open such a file should raise an exception, not end a session.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace mirn2::rd::hdf5 {

// How a task ended.
struct Outcome {
  bool survived = true;
  std::string failure;  // what it threw, if it did
};

// Runs the task in a copy of this process, and returns when it has ended there. It has not survived when it
// crashed, left something of the library open (which then fails at the end of the process), or ran in
// circles: took more processor time than work on a file of that size can need, which is five seconds and one
// for every 8 MB. Waiting for a slow disk is no such time. It gets no more memory than the memory budget has
// left and some to work with, because a few bytes of a packed file can stand for any number. The task must
// not log, print, touch the interpreter or start threads. Where no copy can be made it counts as ended well:
// the attempt is a precaution.
Outcome attempt(uint64_t file_size, const std::function<void()>& task);

}  // namespace mirn2::rd::hdf5
