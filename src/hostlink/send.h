// Sending records to the host.
//
// A command that draws is its message and what it fills into the record:
//
//   constexpr Message circle{"obj2d_circle", WhileLive::refused};
//   ...
//   send<dto_obj2d_t>(circle, [&](dto_obj2d_t& record) { record.chart = chart; ... });
#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "kvalo/host.h"
#include "objects/frame.h"
#include "runtime/ilc.h"

namespace mirn2::hostlink {

// The channel of this process. Throws RuntimeError after teardown.
mirn3::ilc::Channel& channel();

enum class WhileLive : bool { sent, refused };

// A message's name, and whether it is sent while a live source runs.
struct Message {
  const char* name;
  WhileLive while_live = WhileLive::sent;
};

// Hands the record to the host, which has handled it when this returns. Throws python_error when a handler
// written in Python failed. Without a handler the process ends.
void send_record(const char* name, std::shared_ptr<void> record);

// Refuses a message that is not sent while a live source runs (RuntimeError, before anything else is done);
// then makes a record with its initial values, lets `fill` complete it, and sends it.
template <typename Record, typename Fill>
void send(const Message& message, Fill&& fill) {
  if (message.while_live == WhileLive::refused) refuse_online(message.name);
  auto record = std::make_shared<Record>();
  fill(*record);
  send_record(message.name, std::move(record));
}

// "app_info": one parameter of the host's window or theme.
void send_info(const char* parameter, mirn3::var_t value);

// "app_error": a report, not a request, so it goes to the log without a handler and nowhere after teardown.
// The text is cut to 512 bytes. Leaves a pending Python error as it is.
void report_error(std::string_view text);

}  // namespace mirn2::hostlink
