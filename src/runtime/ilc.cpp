// Hands messages to the host, or ends the process when there is none.
#include "runtime/ilc.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "runtime/log.h"
#include "runtime/python.h"

namespace mirn3::ilc {

Channel* channel = nullptr;

namespace {

// Writes out what the script printed, as an orderly end would.
void flush_script_output() noexcept {
  if (!python::is_filled()) return;
  const python::Lock lock;
  for (const char* name : {"stdout", "stderr"}) {
    python::object stream = python::table.PySys_GetObject(name);
    if (stream == nullptr) continue;
    python::object result = python::table.PyObject_CallMethod(stream, "flush", nullptr);
    if (result != nullptr) python::table.Py_DecRef(result);
    python::table.PyErr_Clear();
  }
}

[[noreturn]] void end_without_host(const char* name) noexcept {
  flush_script_output();
  std::fprintf(stderr, "kvalo: %s\n", no_host_text(name).c_str());
  std::fflush(nullptr);
  log::write(log::error, std::string("There is no host to handle '") + name + "'; the process ends");
  log::close();
  std::_Exit(EXIT_FAILURE);
}

}  // namespace

std::string no_host_text(const char* name) {
  return std::string("there is no host to handle '") + name +
         "'. Import kvalo_view first, or run the script under kvalo-host.";
}

void Channel::install(handler_t handler) { handler_ = std::move(handler); }

void Channel::send(const char* name, std::shared_ptr<void> record) const noexcept {
  if (!handler_) end_without_host(name);
  // A handler may install another one while it runs; this copy stays alive until it returns.
  const handler_t handler = handler_;
  handler(std::make_shared<msgdata_t>(msgdata_t{name_hash(name), std::move(record)}));
}

}  // namespace mirn3::ilc
