// Runs a task in a forked process that reports its end through a pipe.
#include "backends/hdf5/probe.h"

#include <fcntl.h>
#include <hdf5.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <fstream>
#include <new>
#include <string>
#include <string_view>

#include "runtime/mem.h"

namespace mirn2::rd::hdf5 {

namespace {

constexpr char ended_there = 1;
constexpr size_t longest_failure = 2048;  // a pipe takes it in one go

// For what the library needs besides the samples: chunks, caches, what it knows of the file.
constexpr uint64_t to_work_with = uint64_t{512} << 20;

// For the task, in seconds.
struct Patience {
  explicit Patience(uint64_t file_size) : work(5 + std::min<uint64_t>(file_size >> 23, 86'400)) {}

  rlim_t work;
  // A copy can wait forever, for a lock that another thread held when it was made.
  unsigned wall() const { return static_cast<unsigned>(60 + 4 * work); }
};

ssize_t open_objects() { return H5Fget_obj_count(static_cast<hid_t>(H5F_OBJ_ALL), H5F_OBJ_ALL); }

// Limits the address space that this process may take in addition. Not under sanitizers, which reserve large
// ranges and report a refusal.
void limit_memory([[maybe_unused]] uint64_t more) {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  std::ifstream pages("/proc/self/statm");
  uint64_t taken = 0;
  if (!(pages >> taken)) return;
  taken *= static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  rlimit space{};
  getrlimit(RLIMIT_AS, &space);
  space.rlim_cur =
      std::min<rlim_t>(space.rlim_cur, more > RLIM_INFINITY - taken ? RLIM_INFINITY : taken + more);
  setrlimit(RLIMIT_AS, &space);
#endif
}

// Writes the outcome to the pipe: a byte, and the text of a failure.
void tell(int done, std::string_view failure) {
  std::string message(1, ended_there);
  message += failure.substr(0, longest_failure);
  if (write(done, message.data(), message.size()) != static_cast<ssize_t>(message.size())) _exit(1);
}

[[noreturn]] void run_as_child(const std::function<void()>& task, int done, Patience patience,
                               uint64_t memory) {
  for (const int fatal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM, SIGXCPU})
    std::signal(fatal, SIG_DFL);
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  rlimit work{};
  getrlimit(RLIMIT_CPU, &work);
  work.rlim_cur = std::min(work.rlim_cur, patience.work);
  setrlimit(RLIMIT_CPU, &work);
  alarm(patience.wall());
  limit_memory(memory);
  const ssize_t open_before = open_objects();
  std::string failure;
  try {
    task();
  } catch (const std::bad_alloc&) {
    failure = "The HDF5 file takes more memory to read than there is; it is damaged or made to harm";
  } catch (const std::exception& error) {
    failure = *error.what() != 0 ? error.what() : "the HDF5 library fails";
  }
  if (open_objects() != open_before) _exit(1);
  tell(done, failure);
  _exit(0);
}

}  // namespace

Outcome attempt(uint64_t file_size, const std::function<void()>& task) {
  const Patience patience(file_size);
  const uint64_t memory = mirn3::mem::free_budget() + to_work_with;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  const pid_t child = fork();
  if (child == 0) run_as_child(task, ends[1], patience, memory);
  close(ends[1]);
  Outcome outcome;
  if (child > 0) {
    pollfd waiting{ends[0], POLLIN, 0};
    int ready = 0;
    do {
      ready = poll(&waiting, 1, static_cast<int>(patience.wall() + 5) * 1000);
    } while (ready < 0 && errno == EINTR);
    std::array<char, 1 + longest_failure> told{};
    const ssize_t got = ready > 0 ? read(ends[0], told.data(), told.size()) : 0;
    outcome.survived = got > 0 && told[0] == ended_there;
    if (outcome.survived) outcome.failure.assign(told.data() + 1, static_cast<size_t>(got - 1));
    if (ready <= 0) kill(child, SIGKILL);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  close(ends[0]);
  return outcome;
}

}  // namespace mirn2::rd::hdf5
