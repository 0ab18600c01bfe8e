// Finds and opens native plug-in libraries.
#include "runtime/sys_plugin.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <stdexcept>

#include "kvalo/plugin.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/machine.h"
#include "runtime/python.h"
#include "runtime/sys.h"

namespace mirn3::sys {

namespace fs = std::filesystem;

Plugin::Plugin(fs::path canonical)
    : path_(std::move(canonical)), handle_(dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ != nullptr) return;
  const char* reason = dlerror();
  throw exc::error_t(reason != nullptr ? reason : "not a library");
}

void* Plugin::look_up(const char* name) const noexcept { return dlsym(handle_, name); }

void* Plugin::require(const char* name) const {
  if (void* function = look_up(name)) return function;
  throw std::runtime_error(fmt::format("Could not load function '{:s}'", name));
}

namespace {

// What is known of a file with this stamp: the library, or why there is none.
struct Known {
  std::shared_ptr<Plugin> library;
  FileStamp refused_stamp;
  std::string reason;
};

struct Opened {
  std::shared_ptr<Plugin> library;
  std::string reason;  // why there is no library
  bool first_time;     // the reason was found out just now
};

Opened open_library(const fs::path& file) {
  static std::mutex mutex;
  static auto* all = new std::map<fs::path, Known>;  // never destroyed: readers may outlive statics
  try {
    const fs::path canonical = fs::canonical(file);
    const FileStamp stamp = file_stamp(canonical);
    const std::lock_guard guard(mutex);
    Known& known = (*all)[canonical];
    if (known.library) return {known.library, {}, false};
    if (!known.reason.empty() && known.refused_stamp == stamp) return {nullptr, known.reason, false};
    try {
      known.library = std::make_shared<Plugin>(canonical);
      return {known.library, {}, false};
    } catch (const exc::error_t& error) {
      known.refused_stamp = stamp;
      known.reason = error.what();
      return {nullptr, known.reason, true};
    }
  } catch (const std::exception& error) {
    return {nullptr, error.what(), true};
  }
}

std::string refusal(const fs::path& file, std::string_view reason) {
  return fmt::format("Plug-in '{:s}' cannot be loaded: {:s}", file.string(), reason);
}

bool says_compatible(Plugin& library, const fs::path& path) {
  const auto is_compatible = library.optional_function<decltype(IsCompatible)>("IsCompatible");
  if (is_compatible == nullptr) return false;
  const std::lock_guard one_at_a_time(library.calls);
  try {
    return is_compatible(path.c_str()) == 1;
  } catch (const std::exception& error) {
    log::write(log::warning, fmt::format("Plug-in '{:s}' failed in IsCompatible: {:s}",
                                         library.path().string(), error.what()));
    return false;
  }
}

}  // namespace

fs::path find_plugin(const fs::path& name) {
  if (name.empty() || sys::exists(name)) return name;
  if (name != name.filename()) return {};
  const fs::path installed = plugin_path() / name;
  return sys::exists(installed) ? installed : fs::path();
}

std::vector<fs::path> plugin_files(std::initializer_list<std::string_view> extensions) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator entry(plugin_path(), error), end; !error && entry != end;
       entry.increment(error)) {
    const fs::path& file = entry->path();
    if (std::error_code ignored; !entry->is_regular_file(ignored)) continue;
    const auto fits = [&file](std::string_view extension) { return ext_check(file, extension); };
    if (std::ranges::any_of(extensions, fits)) files.push_back(file);
  }
  std::ranges::sort(files);
  return files;
}

std::shared_ptr<Plugin> plugin_forced(const fs::path& name) {
  const fs::path file = find_plugin(name);
  if (file.empty()) return nullptr;
  Opened opened = open_library(file);
  if (!opened.library) {
    const std::string text = refusal(file, opened.reason);
    log::write(log::error, text);
    python::print_line(text);
  }
  return opened.library;
}

std::shared_ptr<Plugin> plugin_compatible(const fs::path& path) {
  for (const fs::path& file : plugin_files({".so", ".dll"})) {
    Opened opened = open_library(file);
    if (!opened.library) {
      if (opened.first_time) log::write(log::warning, refusal(file, opened.reason));
    } else if (says_compatible(*opened.library, path)) {
      return opened.library;
    }
  }
  return nullptr;
}

bool is_readable(const void* begin, size_t bytes) noexcept {
  const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
  if (bytes >= machine::physical_memory()) return false;
  const auto first = reinterpret_cast<uintptr_t>(begin);
  const uintptr_t end = first + bytes;
  if (begin == nullptr || end < first) return false;
  // The kernel reads one byte of every page for us, and reports pages that do not exist.
  constexpr size_t most = 512;
  std::array<iovec, most> pages;
  std::array<char, most> sink;
  for (uintptr_t at = first; at < end;) {
    size_t n = 0;
    for (; n < most && at < end; ++n, at = (at / page + 1) * page) {
      pages[n] = {reinterpret_cast<void*>(at), 1};
    }
    const iovec into{sink.data(), n};
    const ssize_t read = ::process_vm_readv(::getpid(), &into, 1, pages.data(), n, 0);
    if (read < 0 && errno != EFAULT) return true;  // a sandbox that forbids the call
    if (read != static_cast<ssize_t>(n)) return false;
  }
  return true;
}

}  // namespace mirn3::sys
