// The page's server: 127.0.0.1, one port, HTTP and WebSocket. docs/view-protocol.md is what it speaks.
//
// One thread talks, one computes; neither ever takes the interpreter lock. After fork() the child has no
// server: what it calls here does nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "view/store.h"

namespace kvalo_view {

struct ServerOptions {
  std::string title = "kvalo";
  uint16_t port = 0;  // 0: any that is free

  // The content of an asset; nothing for one that is not there. Called on the server's thread.
  std::function<std::optional<std::string>(const std::string& name)> asset;

  // Draws a chart as "png" or "svg"; may be empty, and may throw a sentence that says why not. Called on a
  // thread of its own, which may wait for the interpreter; so destroy the server without its lock.
  std::function<std::string(uint64_t chart, const std::string& format, Range times)> picture;
};

// Assets out of a folder.
std::function<std::optional<std::string>(const std::string& name)> folder_assets(std::string folder);

class Server {
 public:
  static constexpr size_t most_clients = 16;

  // Listens when it returns. Throws std::system_error. The store must outlive the server.
  Server(Store& store, ServerOptions options);
  // Tells the pages that the script is gone, waits a second at most for them to hear it, and stops.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  std::string address() const;

  // The store has changed. From any thread.
  void changed();

  size_t clients() const;  // pages that are open

  // Waits until the last page has left, for longer than a reload takes, but not longer than `most`. False
  // while a page is open or none has come yet. True in a child process.
  bool wait_left(std::chrono::milliseconds most);

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace kvalo_view
