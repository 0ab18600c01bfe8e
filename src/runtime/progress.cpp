// Shows a line on the terminal while something takes long.
#include "runtime/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

namespace mirn3::progress {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto before_showing = 1s;
constexpr auto between_updates = 100ms;

std::atomic<bool> shown = false;  // somebody has the line
std::atomic<uint64_t> done_now = 0;
std::atomic<uint64_t> total_now = 0;

bool wanted() noexcept {
  const char* setting = std::getenv("KVALO_PROGRESS");
  const bool off = setting != nullptr && std::string_view(setting) == "0";
  return !off && ::isatty(STDERR_FILENO) == 1;
}

// Straight to the terminal, without a buffer; failures are ignored.
void print(const std::string& text) noexcept {
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
}

constexpr const char* wiped = "\r\x1b[K";

}  // namespace

struct Line::Watcher {
  // Names come from files: a control character in one must not steer the terminal.
  explicit Watcher(std::string_view text) : what(text) {
    std::ranges::replace_if(
        what, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    thread = std::thread([this] { watch(); });
  }

  ~Watcher() {
    {
      const std::lock_guard lock(mutex);
      ended = true;
    }
    changed.notify_one();
    thread.join();
  }

  void watch() noexcept {
    const auto start = Clock::now();
    std::unique_lock lock(mutex);
    if (changed.wait_for(lock, before_showing, [this] { return ended; })) return;
    do {
      const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
      const uint64_t total = total_now.load(std::memory_order_relaxed);
      const uint64_t done = std::min(done_now.load(std::memory_order_relaxed), total);
      std::string share;
      if (total != 0)
        share = fmt::format(" {:.0f} %,", 100.0 * static_cast<double>(done) / static_cast<double>(total));
      print(fmt::format("{}{} ...{} {:.1f} s", wiped, what, share, seconds));
    } while (!changed.wait_for(lock, between_updates, [this] { return ended; }));
    print(wiped);
  }

  std::string what;
  std::mutex mutex;
  std::condition_variable changed;
  bool ended = false;
  std::thread thread;
};

Line::Line(std::string_view what) {
  if (!wanted() || shown.exchange(true)) return;
  done_now = 0;
  total_now = 0;
  try {
    watcher_ = std::make_unique<Watcher>(what);
  } catch (const std::system_error&) {
    shown = false;  // the system gives no thread: the work goes on without a line
  }
}

Line::~Line() {
  if (!watcher_) return;
  watcher_.reset();
  shown = false;
}

void report(uint64_t done, uint64_t total) noexcept {
  done_now.store(done, std::memory_order_relaxed);
  total_now.store(total, std::memory_order_relaxed);
}

}  // namespace mirn3::progress
