// Creates and destroys the module's process-wide objects.
#include "module/lifecycle.h"

#include <utility>

#include "containers/archives.h"
#include "containers/bank.h"
#include "containers/python_plugin.h"
#include "module/interpreter_table.h"
#include "readers/plugin_native.h"
#include "runtime/ilc.h"
#include "runtime/init.h"
#include "runtime/mem.h"
#include "startup/startup.h"

namespace mirn2 {

namespace {

// The process-wide objects are plain pointers, so that nothing runs destructors behind the
// interpreter's back when the process ends without a teardown.
template <typename Global, typename Object>
void install(Global*& global, Object* object) {
  delete std::exchange(global, object);
}

constexpr size_t archive_buckets = 8;

}  // namespace

void start_up() {
  if (mirn3::is_pyd()) return;
  mirn3::init_pyd();
  fill_interpreter_table();
  auto* registry = new rd::Bank;
  install(series_registry, registry);
  install(archive_table, new ArchiveTable(archive_buckets));
  install(mirn3::ilc::channel, new mirn3::ilc::Channel);
  mirn3::mem::callback_reserve = [registry] { registry->reserve_memory(); };
  if (!mirn3::is_app()) mirn1::init_pyd();
  // A plug-in whose threads still run must end before the process' exit handlers do.
  [[maybe_unused]] static const int registered = Py_AtExit(rd::end_native_plugins);
}

void tear_down() noexcept {
  rd::end_python_plugins();
  rd::end_native_plugins();
  if (!mirn3::is_app()) {
    mirn1::shut_pyd();
    mirn3::shut();
  }
  // Whatever the mode, the budget must not reach the registry any more.
  mirn3::mem::callback_reserve = nullptr;
  delete std::exchange(archive_table, nullptr);
  delete std::exchange(series_registry, nullptr);
  delete std::exchange(mirn3::ilc::channel, nullptr);
}

}  // namespace mirn2
