// A task in a forked process, whose end is told through a pipe.
#include "backends/hdf5/probe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>

namespace mirn2::rd::hdf5 {

namespace {

constexpr unsigned longest_seconds = 60;

[[noreturn]] void run_as_child(const std::function<void()>& task, int done) {
  for (const int fatal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM}) std::signal(fatal, SIG_DFL);
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  alarm(longest_seconds);
  try {
    task();
  } catch (const std::exception&) {  // an orderly failure: the caller will meet it again
  }
  const char byte = 1;
  _exit(write(done, &byte, 1) == 1 ? 0 : 1);
}

}  // namespace

bool survives(const std::function<void()>& task) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return true;
  const pid_t child = fork();
  if (child == 0) run_as_child(task, ends[1]);
  close(ends[1]);
  bool survived = child < 0;
  if (child > 0) {
    pollfd waiting{ends[0], POLLIN, 0};
    int ready = 0;
    do {
      ready = poll(&waiting, 1, (longest_seconds + 5) * 1000);
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
