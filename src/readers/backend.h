// Opens readers that need a large third-party library: each is in a library of its own (src/backends), loaded
// with the first such file. So the import stays light, and a machine without that library can do the rest.
#pragma once

#include <filesystem>
#include <memory>

#include "readers/reader.h"

namespace mirn2::rd {

// What one backend is and needs.
struct Backend {
  const char* name;     // its library is libkvalo_{name}.so, beside the module
  const char* formats;  // what it reads: "Parquet files"
  const char* remedy;   // what to do where the third-party library is missing
};

// A reader of the file, made by the backend. Opens the library on the first call and keeps it open.
// Throws mirn3::exc::error_t that says what is missing and how to get it.
std::shared_ptr<Reader> make_backend_reader(const Backend& backend, const std::filesystem::path& path);

// What a backend exports, under the name below; a failure is told by filling `error` and returning null.
// The library is compiled with this very header, so C++ types may pass.
using BackendEntry = std::shared_ptr<Reader> (*)(const std::filesystem::path& path,
                                                 std::string& error) noexcept;
constexpr const char* backend_entry = "kvalo_backend_reader";

}  // namespace mirn2::rd

#ifdef __clang__
// The entry has no name mangling so that it can be looked up; C never calls it.
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif

// Defines the entry of a backend for its reader class.
#define KVALO_BACKEND(ReaderClass)                                                                           \
  extern "C" __attribute__((visibility("default"))) std::shared_ptr<mirn2::rd::Reader> kvalo_backend_reader( \
      const std::filesystem::path& path, std::string& error) noexcept {                                      \
    try {                                                                                                    \
      return std::make_shared<ReaderClass>(path);                                                            \
    } catch (const std::exception& failure) {                                                                \
      error = failure.what();                                                                                \
      return nullptr;                                                                                        \
    }                                                                                                        \
  }
