// Start and end of the runtime, and what a fork of the process needs.
#include "runtime/init.h"

#include <pthread.h>

#include <atomic>
#include <exception>

#include "runtime/lifetime.h"
#include "runtime/log.h"
#include "runtime/mem.h"
#include "runtime/tag.h"

namespace mirn3 {

namespace {

std::atomic<bool> app{false};
std::atomic<bool> pyd{false};

// A child must find no lock held by a thread that it does not have, no database connection (it may not
// be carried into a child) and no half-written log line.
void before_fork() {
  tag::before_fork();
  store::before_fork();
  log::before_fork();
}

void after_fork_in_parent() {
  log::after_fork();
  store::after_fork();
  tag::after_fork(false);
}

void after_fork_in_child() {
  log::after_fork();
  store::after_fork();
  tag::after_fork(true);
}

[[maybe_unused]] const int fork_hooks =
    ::pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);

}  // namespace

bool is_app() noexcept { return app.load(std::memory_order_acquire); }
void set_app(bool value) noexcept { app.store(value, std::memory_order_release); }
bool is_pyd() noexcept { return pyd.load(std::memory_order_acquire); }
void init_pyd() { pyd.store(true, std::memory_order_release); }

void shut() noexcept {
  try {
    mem::callback_reserve = nullptr;
    if (tag::has_unsaved()) tag::save();
  } catch (const std::exception& e) {
    log::write(log::warning, e.what());
  }
  tag::clear();
  store::close();
  log::close();
  pyd.store(false, std::memory_order_release);
}

}  // namespace mirn3
