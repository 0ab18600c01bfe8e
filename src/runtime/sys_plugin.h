// Native plug-in libraries: found by name, or by asking those in the plug-in folder who reads a file.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "kvalo/export.h"

namespace mirn3::sys {

// One library; one object for each file, whatever name leads to it. Stays loaded until the process ends:
// threads and buffers of the plug-in may outlive every reader.
class MIRN3_API Plugin {
 public:
  // Throws exc::error_t with the reason when the library cannot be loaded.
  explicit Plugin(std::filesystem::path canonical);
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  // An export, looked up again. Throws std::runtime_error "Could not load function '{name}'".
  template <typename Function>
  Function* function(const char* name) const {
    return reinterpret_cast<Function*>(require(name));
  }

  // An export that may be missing: null then.
  template <typename Function>
  Function* optional_function(const char* name) const noexcept {
    return reinterpret_cast<Function*>(look_up(name));
  }

  const std::filesystem::path& path() const noexcept { return path_; }

  // Held around every call into the library. Never wait for the interpreter lock while holding it.
  std::mutex calls;

 private:
  void* look_up(const char* name) const noexcept;
  void* require(const char* name) const;

  std::filesystem::path path_;
  void* handle_;
};

// The file of a plug-in: an existing path, else a bare file name in the plug-in folder; empty if neither.
MIRN3_API std::filesystem::path find_plugin(const std::filesystem::path& name);

// The files in the plug-in folder with one of these extensions, in name order. Never throws for a folder
// that is missing or cannot be read.
MIRN3_API std::vector<std::filesystem::path> plugin_files(std::initializer_list<std::string_view> extensions);

// The named library. Null if there is none or it cannot be loaded; the reason goes to the log and to the
// script's standard output.
MIRN3_API std::shared_ptr<Plugin> plugin_forced(const std::filesystem::path& name);

// The first library in the plug-in folder, in name order, that says that it reads the file; null when there
// is none. One that cannot be loaded is reported to the log, once. Call without the interpreter lock.
MIRN3_API std::shared_ptr<Plugin> plugin_compatible(const std::filesystem::path& path);

// Whether every page of the range can be read, and the machine could hold a copy of it.
MIRN3_API bool is_readable(const void* begin, size_t bytes) noexcept;

}  // namespace mirn3::sys
