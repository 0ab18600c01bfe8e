#include "module/host_functions.h"

#include <cstring>

#include "runtime/ilc.h"

namespace mirn2::fn {

namespace {

namespace ilc = mirn3::ilc;

ilc::Channel& channel() {
  if (ilc::channel == nullptr) fail(PyExc_RuntimeError, "kvalo has been shut down in this process");
  return *ilc::channel;
}

void callback(Items items) {
  if (items.empty() || !PyCapsule_CheckExact(items[0])) return;
  void* handler = PyCapsule_GetPointer(items[0], nullptr);
  if (handler == nullptr) throw python_error();
  channel().install(*static_cast<const ilc::handler_t*>(handler));
}

void exit(Items) {
  channel().send("app_exit", std::make_shared<dto_exit_t>());
  check_python();  // a handler written in Python may have failed
}

void selfie(const char* path) {
  auto record = std::make_shared<dto_misc_t>();
  const size_t length = std::strlen(path);
  if (length >= sizeof(record->text)) {
    fail(PyExc_ValueError, "The path must be shorter than {:d} bytes ({:d} given)", sizeof(record->text),
         length);
  }
  record->key = ilc::name_hash("path");
  std::memcpy(record->text, path, length + 1);
  channel().send("app_selfie", std::move(record));
  check_python();
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
