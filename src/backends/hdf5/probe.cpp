// A task in a forked process, whose end is told through a pipe.
#include "backends/hdf5/probe.h"

#include <fcntl.h>
#include <hdf5.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>

namespace mirn2::rd::hdf5 {

namespace {

// For the task, in seconds.
struct Patience {
  explicit Patience(uint64_t file_size) : work(5 + std::min<uint64_t>(file_size >> 23, 86'400)) {}

  rlim_t work;
  // A copy can wait forever, for a lock that another thread held when it was made.
  unsigned wall() const { return static_cast<unsigned>(60 + 4 * work); }
};

ssize_t open_objects() { return H5Fget_obj_count(static_cast<hid_t>(H5F_OBJ_ALL), H5F_OBJ_ALL); }

[[noreturn]] void run_as_child(const std::function<void()>& task, int done, Patience patience) {
  for (const int fatal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM, SIGXCPU})
    std::signal(fatal, SIG_DFL);
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  rlimit work{};
  getrlimit(RLIMIT_CPU, &work);
  work.rlim_cur = std::min(work.rlim_cur, patience.work);
  setrlimit(RLIMIT_CPU, &work);
  alarm(patience.wall());
  const ssize_t open_before = open_objects();
  try {
    task();
  } catch (const std::exception&) {  // an orderly failure: the caller will meet it again
  }
  if (open_objects() != open_before) _exit(1);
  const char byte = 1;
  _exit(write(done, &byte, 1) == 1 ? 0 : 1);
}

}  // namespace

bool survives(uint64_t file_size, const std::function<void()>& task) {
  const Patience patience(file_size);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return true;
  const pid_t child = fork();
  if (child == 0) run_as_child(task, ends[1], patience);
  close(ends[1]);
  bool survived = child < 0;
  if (child > 0) {
    pollfd waiting{ends[0], POLLIN, 0};
    int ready = 0;
    do {
      ready = poll(&waiting, 1, static_cast<int>(patience.wall() + 5) * 1000);
    } while (ready < 0 && errno == EINTR);
    char byte = 0;
    survived = ready > 0 && read(ends[0], &byte, 1) == 1;
    if (ready <= 0) kill(child, SIGKILL);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  close(ends[0]);
  return survived;
}

}  // namespace mirn2::rd::hdf5
