// A file that appears under its name only when it is complete.
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "runtime/sys.h"

namespace mirn2 {

// Writes to a temporary name in the same folder; commit() renames it to the final name. Without a
// commit nothing is left, and a file that had the name before stays. Everything throws
// mirn3::exc::error_t. A final name that is a link, a device or a pipe is written to directly.
class ReplacedFile {
 public:
  explicit ReplacedFile(std::filesystem::path path);
  ~ReplacedFile();
  ReplacedFile(const ReplacedFile&) = delete;
  ReplacedFile& operator=(const ReplacedFile&) = delete;

  void write(std::string_view bytes) { file_->write(bytes); }
  void commit();

 private:
  std::filesystem::path path_;
  std::filesystem::path written_;  // the temporary name, or path_ itself when written directly
  std::unique_ptr<mirn3::sys::File> file_;
};

}  // namespace mirn2
