// Opens the libraries in which the readers with large dependencies live.
#include "readers/backend.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <map>
#include <mutex>

#include "runtime/exc.h"

namespace mirn2::rd {

namespace {

namespace fs = std::filesystem;

// The folder of the library that this code is part of.
fs::path own_folder() {
  static const char here = 0;
  Dl_info info;
  if (dladdr(&here, &info) == 0) return {};
  return fs::absolute(info.dli_fname).parent_path();
}

BackendEntry open_backend(const Backend& backend) {
  const fs::path library = own_folder() / fmt::format("libkvalo_{:s}.so", backend.name);
  if (!fs::exists(library)) {
    throw mirn3::exc::error_t(fmt::format("This build of kvalo cannot read {:s}: {:s} is missing",
                                          backend.formats, library.string()));
  }
  // Never closed: readers of it may live until the process ends.
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* entry = handle != nullptr ? dlsym(handle, backend_entry) : nullptr;
  if (entry == nullptr) {
    const char* reason = dlerror();
    throw mirn3::exc::error_t(fmt::format("{:s} cannot be read on this machine: {:s} ({:s})", backend.formats,
                                          backend.remedy, reason != nullptr ? reason : "no entry"));
  }
  return reinterpret_cast<BackendEntry>(entry);
}

}  // namespace

std::shared_ptr<Reader> make_backend_reader(const Backend& backend, const fs::path& path) {
  static std::mutex mutex;
  static std::map<std::string, BackendEntry> opened;
  BackendEntry entry = nullptr;
  {
    const std::lock_guard lock(mutex);
    BackendEntry& known = opened[backend.name];
    if (known == nullptr) known = open_backend(backend);
    entry = known;
  }
  std::string error;
  std::shared_ptr<Reader> reader = entry(path, error);
  if (!reader) throw mirn3::exc::error_t(error);
  return reader;
}

}  // namespace mirn2::rd
