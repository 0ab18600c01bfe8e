// Module functions that install, use and end the host.
#include "module/host_functions.h"

#include "hostlink/send.h"
#include "hostlink/text_field.h"

namespace mirn2::fn {

namespace {

namespace ilc = mirn3::ilc;

void callback(Items items) {
  if (items.empty() || !PyCapsule_CheckExact(items[0])) return;
  void* handler = PyCapsule_GetPointer(items[0], nullptr);
  if (handler == nullptr) throw python_error();
  hostlink::channel().install(*static_cast<const ilc::handler_t*>(handler));
}

void exit(Items) { hostlink::send_record("app_exit", std::make_shared<dto_exit_t>()); }

void selfie(const char* path) {
  hostlink::send<dto_misc_t>("app_selfie", [&](dto_misc_t& record) {
    record.key = ilc::name_hash("path");
    hostlink::put_text(record.text, path, "path");
  });
}

}  // namespace

Rows host_rows() {
  static const PyMethodDef rows[] = {
      row<"callback", "(capsule, /)", "*", "Internal use only", callback,
          Frame{.failures = &PyExc_RuntimeError}>(),
      row<"exit", "()", "*", "Exit application", exit, Frame{.failures = &PyExc_RuntimeError}>(),
      row<"selfie", "(path)", "s", "Take screenshot of application window", selfie>(),
  };
  return rows;
}

}  // namespace mirn2::fn
