// Writes a file beside its target and moves it there when it is complete.
#include "export/replaced_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "runtime/exc.h"
#include "runtime/str.h"

namespace mirn2 {

namespace {

namespace fs = std::filesystem;

constexpr size_t random_length = 8;

// A rename would replace a device, a pipe or a link instead of writing to its target.
bool is_written_directly(const fs::path& path) {
  std::error_code ignored;
  const fs::file_status status = fs::symlink_status(path, ignored);
  return fs::exists(status) && !fs::is_regular_file(status);
}

fs::path temporary_name(const fs::path& path) {
  return path.parent_path() /
         fmt::format(".{}.{}", path.filename().string(), mirn3::str::random(random_length));
}

}  // namespace

ReplacedFile::ReplacedFile(fs::path path)
    : path_(std::move(path)), written_(is_written_directly(path_) ? path_ : temporary_name(path_)) {
  // A file that must not be written must not be replaced either.
  mirn3::sys::write_check(path_);
  file_ = std::make_unique<mirn3::sys::File>(written_, mirn3::sys::write_text);
}

ReplacedFile::~ReplacedFile() {
  if (file_ == nullptr) return;
  file_.reset();
  if (written_ != path_) std::remove(written_.c_str());
}

void ReplacedFile::commit() {
  file_->close();
  if (written_ != path_ && std::rename(written_.c_str(), path_.c_str()) != 0) {
    throw mirn3::exc::error_t(std::string("Cannot rename the finished file: ") + std::strerror(errno));
  }
  file_.reset();
}

}  // namespace mirn2
