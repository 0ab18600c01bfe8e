// Opens libarchive and zlib on first use.
#include "runtime/zip_library.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <string>

#include "runtime/exc.h"

namespace mirn3::zip {

namespace {

[[noreturn]] void fail_without_library() {
  const char* reason = dlerror();
  throw exc::error_t(
      fmt::format("Archives cannot be unpacked on this machine: install the package libarchive13 ({})",
                  reason != nullptr ? reason : "unknown reason"));
}

void* open_library(const char* name) {
  void* handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) fail_without_library();
  return handle;
}

template <typename Function>
void bind(void* handle, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  if (function == nullptr) fail_without_library();
}

Library open_libraries() {
  Library bound;
  void* const archive = open_library("libarchive.so.13");
#define MIRN3_BIND(name) bind(archive, #name, bound.name);
  MIRN3_ARCHIVE_FUNCTIONS(MIRN3_BIND)
#undef MIRN3_BIND
  void* const zlib = open_library("libz.so.1");
#define MIRN3_BIND(name) bind(zlib, #name, bound.name);
  MIRN3_ZLIB_FUNCTIONS(MIRN3_BIND)
#undef MIRN3_BIND
  return bound;
}

}  // namespace

const Library& library() {
  static const Library bound = open_libraries();  // tried again after a failure
  return bound;
}

}  // namespace mirn3::zip
