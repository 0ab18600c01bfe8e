// Applies a host's messages to the state of what is shown.
//
// Thread safe: messages come on the script's thread, everybody else takes the state of the moment.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "view/fork.h"
#include "view/model.h"

namespace kvalo_view {

// What only the host's other side can do: messages that ask for more than a change of the state.
struct Request {
  enum class Type : uint8_t { save, selfie, exit, error } type;
  uint64_t chart = 0;  // save: 0 for the page
  std::string text;    // path, or the error
  std::string size;    // save
};

class Store {
 public:
  // Takes a message in. Messages of an unknown id, and what is out of place in known ones, do nothing.
  void apply(const mirn3::ilc::msgdata_t& message);

  // A handler for kvalo.callback; the store must outlive it.
  mirn3::ilc::handler_t handler();

  std::shared_ptr<const State> state() const;

  // Removes all charts and pages, as close does.
  void clear();

  // Called after every change, and with every request, on the thread that applied the message. Set them
  // while nobody applies messages; what they throw comes out of apply().
  std::function<void()> on_change;
  std::function<void(const Request&)> on_request;

 private:
  mutable ForkMutex mutex_;
  std::shared_ptr<const State> state_ = std::make_shared<State>();
  uint32_t next_key_ = 1;
  bool warned_ = false;  // of much pinned memory
};

}  // namespace kvalo_view
