// The channel to the host: everything that happens in the host's window goes through it as a message.
//
// Sending is synchronous: when send() returns, the host has handled the message. Send on the script's thread,
// which holds the interpreter lock. The module sends through src/hostlink.
#pragma once

#include <memory>
#include <string>

#include "kvalo/host.h"

namespace mirn3::ilc {

class MIRN3_API Channel {
 public:
  // Installs or replaces the host's handler.
  void install(handler_t handler);
  bool has_handler() const noexcept { return static_cast<bool>(handler_); }

  // Hands a message to the host. Without a handler prints one line on standard error that says how to get a
  // host, and ends the process.
  void send(const char* name, std::shared_ptr<void> record) const noexcept;

 private:
  handler_t handler_;
};

// What a script is told whose message finds no host.
MIRN3_API std::string no_host_text(const char* name);

// The channel of this process; null before start-up and after teardown.
MIRN3_API extern Channel* channel;

}  // namespace mirn3::ilc
