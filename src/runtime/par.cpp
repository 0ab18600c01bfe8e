// Runs the parts of a piece of work on threads that live for one call.
#include "runtime/par.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace mirn3::par {

namespace {

constexpr size_t most_threads = 1024;

// KVALO_THREADS, or 0 if it is absent or not a count.
size_t asked_threads() noexcept {
  const char* text = std::getenv("KVALO_THREADS");
  if (text == nullptr) return 0;
  size_t count = 0;
  const char* end = text + std::strlen(text);
  const auto parsed = std::from_chars(text, end, count);
  return parsed.ec == std::errc() && parsed.ptr == end ? std::min(count, most_threads) : 0;
}

}  // namespace

size_t workers() noexcept {
  static const size_t asked = asked_threads();
  if (asked != 0) return asked;
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  if (::sched_getaffinity(0, sizeof allowed, &allowed) == 0) {
    return static_cast<size_t>(std::max(CPU_COUNT(&allowed), 1));
  }
  // Machines with more cores than the mask can name.
  return std::max(std::thread::hardware_concurrency(), 1u);
}

void run(size_t parts, const std::function<void(size_t part)>& task) {
  std::atomic<size_t> next{0};
  std::mutex mutex;
  size_t failed_part = parts;
  std::exception_ptr failure;

  const auto work = [&]() noexcept {
    for (size_t part; (part = next.fetch_add(1, std::memory_order_relaxed)) < parts;) {
      try {
        task(part);
      } catch (...) {
        const std::lock_guard lock(mutex);
        if (part < failed_part) {
          failed_part = part;
          failure = std::current_exception();
        }
      }
    }
  };

  const size_t helpers = parts > 1 ? std::min(parts, workers()) - 1 : 0;
  std::vector<std::thread> threads;
  threads.reserve(helpers);
  try {
    while (threads.size() < helpers) threads.emplace_back(work);
  } catch (const std::system_error&) {
    // The system gives no more threads: those that run, and this one, do all parts.
  }
  work();
  for (std::thread& thread : threads) thread.join();
  if (failure) std::rethrow_exception(failure);
}

void ranges(size_t n, size_t least, const std::function<void(size_t first, size_t last)>& task) {
  if (n == 0) return;
  const size_t worthwhile = n / std::max<size_t>(least, 1);
  const size_t parts = worthwhile > 1 ? std::min(worthwhile, workers()) : 1;  // workers() asks the system
  if (parts == 1) {
    task(0, n);
    return;
  }
  const size_t length = n / parts;
  const size_t longer = n % parts;  // so many parts get one element more
  run(parts, [&](size_t part) {
    const size_t first = part * length + std::min(part, longer);
    task(first, first + length + (part < longer ? 1 : 0));
  });
}

}  // namespace mirn3::par
