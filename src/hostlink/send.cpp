// Sending records to the host: the channel, and what every message has in common.
#include "hostlink/send.h"

#include "hostlink/text_field.h"
#include "objects/frame.h"
#include "runtime/log.h"

namespace mirn2::hostlink {

namespace ilc = mirn3::ilc;

ilc::Channel& channel() {
  if (ilc::channel == nullptr) fail(PyExc_RuntimeError, "kvalo has been shut down in this process");
  return *ilc::channel;
}

void send_record(const char* name, std::shared_ptr<void> record) {
  channel().send(name, std::move(record));
  check_python();
}

void send_info(const char* parameter, mirn3::var_t value) {
  send<dto_misc_t>("app_info", [&](dto_misc_t& record) {
    record.key = ilc::name_hash(parameter);
    record.values[0] = std::move(value);
  });
}

void report_error(std::string_view text) {
  if (ilc::channel == nullptr) return;
  if (!ilc::channel->has_handler()) {
    mirn3::log::write(mirn3::log::error, text);
    return;
  }
  auto record = std::make_shared<dto_error_t>();
  put_cut_text(record->text, text);
  ilc::channel->send("app_error", std::move(record));
}

}  // namespace mirn2::hostlink
