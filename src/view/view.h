// Everything that a host made of this folder needs: the handler, the charts, their pictures' data, the
// server.
//
// The Python package kvalo_view and the program kvalo-host both stand on this. One for a process; methods may
// be called on any thread. None takes the interpreter lock; those that wait (tiles, stop, wait_left, the
// destructor) are best called without it.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "view/server.h"
#include "view/store.h"
#include "view/views.h"

namespace kvalo_view {

class Host {
 public:
  Host();
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // For kvalo.callback: wrap its address in a capsule without a name. Lives as long as the host.
  mirn3::ilc::handler_t* handler() { return &handler_; }

  // Called for saving, screenshots, exit and errors, on the script's thread, which holds the interpreter
  // lock. Set it before the handler is installed.
  void on_request(std::function<void(const Request&)> call) { store_.on_request = std::move(call); }

  // Pages, charts, series with their samples, settings: a snapshot that stays as it is.
  std::shared_ptr<const State> state() const { return store_.state(); }
  void clear() { store_.clear(); }

  // What is drawn of a chart, for files: ask for two columns a pixel. Empty for a chart that is not there or
  // has nothing to show; `error` says why, and `x` is the range of the x axis.
  struct Drawing {
    std::vector<Tile> tiles;
    std::string error;
    std::optional<Range> x;
  };
  Drawing draw(uint64_t chart, const View& view);
  std::vector<Statistics> statistics(uint64_t chart, Range times);

  // Starts the server, or does nothing when it runs (a child after fork starts its own). Returns the page's
  // address. Throws std::system_error.
  std::string serve(ServerOptions options);
  void stop();
  std::string address() const;  // empty without a server
  size_t clients() const;
  // Waits until the last page has left, at most that long; true without a server.
  bool wait_left(std::chrono::milliseconds most);

 private:
  std::shared_ptr<Server> server() const;

  Store store_;
  mirn3::ilc::handler_t handler_ = store_.handler();
  mutable ForkMutex server_guard_;
  std::shared_ptr<Server> server_;
  int server_process_ = 0;
  ForkMutex drawing_guard_;
  Views drawing_;
};

}  // namespace kvalo_view
