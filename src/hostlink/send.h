// Sending records to the host.
//
// A command that draws fills a record and sends it; its row (objects/row.h) parses the arguments and refuses
// the call while a live source runs (Frame{.online = ...}):
//
//   void circle(uint64_t chart, double x, ...) {
//     hostlink::send<dto_obj2d_t>("obj2d_circle", [&](dto_obj2d_t& record) { record.chart = chart; ... });
//   }
#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "kvalo/host.h"
#include "runtime/ilc.h"

namespace mirn2::hostlink {

// The channel of this process. Throws RuntimeError after teardown.
mirn3::ilc::Channel& channel();

// Hands the record to the host, which has handled it when this returns. Throws python_error when a handler
// written in Python failed. Without a handler imports kvalo_view, which is one, unless KVALO_HOST is "none".
// Without that too the process ends; in a notebook RuntimeError is thrown instead.
void send_record(const char* name, std::shared_ptr<void> record);

// Makes a record with its initial values, lets `fill` complete it, and sends it.
template <typename Record, typename Fill>
void send(const char* name, Fill&& fill) {
  auto record = std::make_shared<Record>();
  fill(*record);
  send_record(name, std::move(record));
}

// "app_info": one parameter of the host's window or theme.
void send_info(const char* parameter, mirn3::var_t value);

// "app_error": a report, not a request, so it goes to the log without a handler and nowhere after teardown.
// The text is cut to 512 bytes. Leaves a pending Python error as it is.
void report_error(std::string_view text);

}  // namespace mirn2::hostlink
