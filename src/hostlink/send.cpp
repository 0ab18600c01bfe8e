// Sending records to the host: the channel, and what every message has in common.
#include "hostlink/send.h"

#include <cstdlib>
#include <string_view>

#include "hostlink/text_field.h"
#include "objects/frame.h"
#include "runtime/log.h"

namespace mirn2::hostlink {

namespace ilc = mirn3::ilc;

ilc::Channel& channel() {
  if (ilc::channel == nullptr) fail(PyExc_RuntimeError, "kvalo has been shut down in this process");
  return *ilc::channel;
}

namespace {

bool is_refused() {
  const char* host = std::getenv("KVALO_HOST");
  return host != nullptr && std::string_view(host) == "none";
}

// Imports kvalo_view, which installs its handler. Where it is not installed nothing happens; an installed one
// that cannot be imported raises what it says.
void import_host() {
  PyObject* package = PyImport_ImportModule("kvalo_view");
  Py_XDECREF(package);
  if (package != nullptr) return;
  PyObject *type = nullptr, *error = nullptr, *trace = nullptr;
  PyErr_Fetch(&type, &error, &trace);
  PyErr_NormalizeException(&type, &error, &trace);
  PyObject* missing = error == nullptr ? nullptr : PyObject_GetAttrString(error, "name");
  PyErr_Clear();
  const bool is_missing = PyErr_GivenExceptionMatches(type, PyExc_ModuleNotFoundError) != 0 &&
                          missing != nullptr && PyUnicode_Check(missing) &&
                          PyUnicode_CompareWithASCIIString(missing, "kvalo_view") == 0;
  Py_XDECREF(missing);
  PyErr_Restore(type, error, trace);
  if (!is_missing) throw python_error();
  PyErr_Clear();
}

// Whether this is a session of IPython, such as a notebook's kernel: the end of the process would take the
// user's work along.
bool is_notebook() {
  PyObject* ipython = PyDict_GetItemString(PyImport_GetModuleDict(), "IPython");  // borrowed
  if (ipython == nullptr) return false;
  PyObject* shell = PyObject_CallMethod(ipython, "get_ipython", nullptr);
  if (shell == nullptr) PyErr_Clear();
  const bool is_running = shell != nullptr && shell != Py_None;
  Py_XDECREF(shell);
  return is_running;
}

}  // namespace

void send_record(const char* name, std::shared_ptr<void> record) {
  if (!channel().has_handler() && !is_refused()) import_host();
  if (!channel().has_handler() && is_notebook()) {
    fail(PyExc_RuntimeError, "{:s}", ilc::no_host_text(name));
  }
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
  // A handler written in Python cannot run with an error set, and what it raises must not hide that error.
  PyObject *type = nullptr, *error = nullptr, *trace = nullptr;
  PyErr_Fetch(&type, &error, &trace);
  ilc::channel->send("app_error", std::move(record));
  if (PyErr_Occurred() != nullptr) PyErr_WriteUnraisable(nullptr);
  PyErr_Restore(type, error, trace);
}

}  // namespace mirn2::hostlink
