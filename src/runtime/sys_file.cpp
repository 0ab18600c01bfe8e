// Files as C streams, and the questions about a path that need no stream.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "runtime/exc.h"
#include "runtime/str.h"
#include "runtime/sys.h"
#include "runtime/sys_descriptor.h"

namespace mirn3::sys {

namespace {

// The first room for a line; it doubles as lines ask for more.
constexpr size_t first_line_room = 1024;

// Links followed by hand before a path counts as a circle.
constexpr int most_links = 32;

void open_blocking_again(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags >= 0) fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
}

// Without O_NONBLOCK, opening a pipe that nobody reads would wait.
Descriptor open_for_writing(const std::filesystem::path& path) {
  Descriptor file(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666));
  if (!file) fail("open", path, errno);
  open_blocking_again(file.get());
  return file;
}

}  // namespace

Descriptor::~Descriptor() {
  if (fd_ >= 0) ::close(fd_);
}

void fail(std::string_view verb, const std::filesystem::path& path, int error) {
  throw exc::error_t(
      fmt::format("Cannot {} '{}': {}", verb, path.string(), std::generic_category().message(error)), error);
}

Descriptor open_regular(const std::filesystem::path& path, struct stat& state) {
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!file || fstat(file.get(), &state) != 0) fail("open", path, errno);
  if (S_ISDIR(state.st_mode)) fail("open", path, EISDIR);
  if (!S_ISREG(state.st_mode)) {
    throw exc::error_t(fmt::format("Cannot open '{}': Not a regular file", path.string()), EINVAL);
  }
  return file;
}

File::File(const std::filesystem::path& path, int mode) : path_(path) {
  const bool writes = mode == write_text;
  if (!writes && mode != read_text && mode != read_binary) {
    throw exc::error_t(fmt::format("Cannot open '{}': {} is not a mode of opening", path.string(), mode),
                       EINVAL);
  }
  struct stat state {};
  Descriptor file = writes ? open_for_writing(path) : open_regular(path, state);
  stream_ = fdopen(file.get(), writes ? "w" : "r");
  if (stream_ == nullptr) fail("open", path, errno);
  file.release();
}

File::~File() {
  if (stream_ != nullptr) std::fclose(stream_);
  std::free(line_);
}

char* File::readline() {
  if (stream_ == nullptr) fail("read", path_, EBADF);
  size_t length = 0;
  for (int byte = 0; byte != '\n'; ++length) {
    byte = getc_unlocked(stream_);
    if (byte == EOF) break;
    if (length + 1 >= line_room_) {
      if (length >= longest_line) {
        throw exc::error_t(
            fmt::format("Cannot read '{}': a line is longer than {} bytes", path_.string(), longest_line),
            EFBIG);
      }
      const size_t room = std::clamp(line_room_ * 2, first_line_room, longest_line + 1);
      char* grown = static_cast<char*>(std::realloc(line_, room));
      if (grown == nullptr) fail("read", path_, ENOMEM);
      line_ = grown;
      line_room_ = room;
    }
    line_[length] = static_cast<char>(byte);
  }
  if (std::ferror(stream_)) fail("read", path_, errno);
  if (length == 0) return nullptr;
  line_[length] = '\0';
  return line_;
}

void File::seek(int64_t n) {
  if (stream_ == nullptr) fail("read", path_, EBADF);
  if (fseeko(stream_, n, SEEK_CUR) != 0) fail("read", path_, errno);
}

void File::write(std::string_view bytes) {
  if (stream_ == nullptr) fail("write", path_, EBADF);
  if (std::fwrite(bytes.data(), 1, bytes.size(), stream_) != bytes.size()) fail("write", path_, errno);
}

void File::close() {
  if (stream_ == nullptr) return;
  if (std::fclose(std::exchange(stream_, nullptr)) != 0) fail("write", path_, errno);
}

FileStamp file_stamp(const std::filesystem::path& path) {
  struct stat state {};
  if (stat(path.c_str(), &state) != 0) fail("open", path, errno);
  return {static_cast<uint64_t>(state.st_dev), static_cast<uint64_t>(state.st_ino),
          static_cast<uint64_t>(state.st_size),
          int64_t{state.st_mtim.tv_sec} * 1'000'000'000 + state.st_mtim.tv_nsec};
}

bool exists(const std::filesystem::path& path) noexcept {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

bool ext_check(const std::filesystem::path& path, std::string_view extension) {
  const std::string& text = path.native();
  return text.size() >= extension.size() &&
         std::equal(extension.rbegin(), extension.rend(), text.rbegin(),
                    [](char a, char b) { return str::lower(a) == str::lower(b); });
}

void write_check(const std::filesystem::path& path) {
  // Only opening the file gives the answer: access rights say nothing about name lengths, quotas and
  // read-only media. An existing file keeps its content and its times.
  std::filesystem::path target = path;
  for (int link = 0; link < most_links; ++link) {
    const Descriptor present(::open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (present) return;
    if (errno != ENOENT) fail("write", path, errno);

    const Descriptor fresh(::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (fresh) {
      unlink(target.c_str());
      return;
    }
    if (errno != EEXIST) fail("write", path, errno);

    // Writing through a link to a file that is not there yet creates that file.
    std::error_code error;
    const std::filesystem::path next = std::filesystem::read_symlink(target, error);
    if (error) return;  // somebody else created it just now
    target = target.parent_path() / next;
  }
  fail("write", path, ELOOP);
}

}  // namespace mirn3::sys
