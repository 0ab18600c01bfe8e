// Joins store, views and server.
#include "view/view.h"

#include <unistd.h>

#include <utility>

namespace kvalo_view {

Host::Host() {
  store_.on_change = [this] {
    if (const auto running = server()) running->changed();
  };
}

Host::~Host() { stop(); }

Host::Drawing Host::draw(uint64_t id, const View& view) {
  const auto state = store_.state();
  const auto chart = state->chart(id);
  if (!chart) return {};
  const std::lock_guard lock(drawing_guard_);
  drawing_.forget(*state);
  Drawing result;
  result.tiles = drawing_.tiles(*chart, view);
  result.error = drawing_.error(*chart);
  result.x = drawing_.x_range(*chart);
  drawing_.forget(State());  // pictures are drawn now and then: nothing is kept for them
  return result;
}

std::vector<Statistics> Host::statistics(uint64_t id, Range times) {
  const auto chart = store_.state()->chart(id);
  return chart ? Views().statistics(*chart, times) : std::vector<Statistics>();
}

std::shared_ptr<Server> Host::server() const {
  const std::lock_guard lock(server_guard_);
  return server_process_ == ::getpid() ? server_ : nullptr;
}

std::string Host::serve(ServerOptions options) {
  const std::lock_guard lock(server_guard_);
  if (!server_ || server_process_ != ::getpid()) {
    server_.reset();  // of the parent: does nothing there
    server_ = std::make_shared<Server>(store_, std::move(options));
    server_process_ = ::getpid();
  }
  return server_->address();
}

void Host::stop() {
  std::shared_ptr<Server> last;
  {
    const std::lock_guard lock(server_guard_);
    last = std::exchange(server_, nullptr);
  }
  last.reset();  // without the lock, which its threads may want
}

std::string Host::address() const {
  const auto running = server();
  return running ? running->address() : std::string();
}

size_t Host::clients() const {
  const auto running = server();
  return running ? running->clients() : 0;
}

bool Host::wait_left(std::chrono::milliseconds most) {
  const auto running = server();
  return !running || running->wait_left(most);
}

}  // namespace kvalo_view
