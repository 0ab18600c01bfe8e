// A file in memory under a name that readers can open; nothing is left behind.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

class MemoryFile {
 public:
  MemoryFile(const uint8_t* data, size_t size) : descriptor_(memfd_create("fuzz", 0)) {
    if (descriptor_ < 0 || write(descriptor_, data, size) != static_cast<ssize_t>(size)) {
      std::fprintf(stderr, "no memory file\n");
      std::abort();
    }
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};
