// Files and places on disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "kvalo/export.h"

namespace mirn3::sys {

// How sys::File opens a file.
enum mode_t : int { read_text = 1, write_text = 2, read_binary = 33 };

// An open file on a C stream. Throws exc::error_t that names the file and the system's reason when it
// cannot be opened, read or written; a folder is not a file.
class MIRN3_API File {
 public:
  File(const std::filesystem::path& path, int mode);
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // The next line, its line end included, as a modifiable zero-terminated text that stays valid until
  // the next call; null at the end of the file. A zero byte inside a line ends the text there, not the
  // line. Lines longer than `longest_line` bytes throw.
  char* readline();

  // Moves n bytes forward from the current position.
  void seek(int64_t n);

  // Writes all bytes, or throws.
  void write(std::string_view bytes);

  // Writes out buffers and closes; throws if that fails. The destructor closes silently.
  void close();

  std::FILE* stream() noexcept { return stream_; }

  static constexpr size_t longest_line = size_t{64} << 20;

 private:
  std::filesystem::path path_;
  std::FILE* stream_ = nullptr;
  char* line_ = nullptr;
  size_t line_room_ = 0;
};

// A file's content, mapped read-only. If another program truncates the file while it is mapped, it reads as
// zeros beyond its new end (never a fault).
class MIRN3_API Mapping {
 public:
  Mapping() = default;
  explicit Mapping(const std::filesystem::path& path);  // throws exc::error_t like File
  ~Mapping();
  Mapping(Mapping&& other) noexcept;
  Mapping& operator=(Mapping&& other) noexcept;

  std::span<const unsigned char> bytes() const noexcept { return {data_, size_}; }
  std::string_view text() const noexcept { return {reinterpret_cast<const char*>(data_), size_}; }

 private:
  const unsigned char* data_ = nullptr;
  size_t size_ = 0;
};

// Tells whether a file is still the one that was read before.
struct FileStamp {
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  int64_t modified_ns = 0;
  bool operator==(const FileStamp&) const = default;
};
MIRN3_API FileStamp file_stamp(const std::filesystem::path& path);  // throws exc::error_t

// Lines in a file: line feeds, plus one when the last line has none. Runs at memory speed.
MIRN3_API uint64_t line_count(const std::filesystem::path& path);
MIRN3_API uint64_t line_count(std::span<const unsigned char> bytes);

// Whether the path exists, whatever its kind. Never throws.
MIRN3_API bool exists(const std::filesystem::path& path) noexcept;

// Whether the path ends in this extension (".csv", ".tar.gz"), ignoring ASCII case.
MIRN3_API bool ext_check(const std::filesystem::path& path, std::string_view extension);

// Checks that a file can be written at this path: the folder exists and permits it. Throws exc::error_t with
// the reason if not. Creates nothing that stays.
MIRN3_API void write_check(const std::filesystem::path& path);

// Places on disk (KVALO_HOME, else the XDG folders). Folders are not created here.
MIRN3_API std::filesystem::path config_path();  // plug-ins, unpack.csv
MIRN3_API std::filesystem::path cache_path();   // extracted archives
MIRN3_API std::filesystem::path state_path();   // state.db, kvalo.log
MIRN3_API std::filesystem::path plugin_path();  // native and Python plug-ins

}  // namespace mirn3::sys
