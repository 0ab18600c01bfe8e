// A file descriptor that closes itself, and the one way in which regular files are opened for reading.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string_view>
#include <utility>

namespace mirn3::sys {

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const noexcept { return fd_; }
  int release() noexcept { return std::exchange(fd_, -1); }
  explicit operator bool() const noexcept { return fd_ >= 0; }

 private:
  int fd_;
};

// Throws exc::error_t "Cannot <verb> '<path>': <what the system says about error>", with that code.
[[noreturn]] void fail(std::string_view verb, const std::filesystem::path& path, int error);

// Opens a regular file for reading and returns its state. Refuses anything else (folder, pipe, device) with
// exc::error_t, without waiting for the other end of a pipe.
Descriptor open_regular(const std::filesystem::path& path, struct stat& state);

}  // namespace mirn3::sys
