// A home folder of its own for a fuzz target, without a log, removed at exit.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>

// Gives its path. Once per process, before the first reader.
inline const char* give_own_home() {
  static char home[] = "/tmp/kvalo_fuzz_XXXXXX";
  static const bool given = [] {
    if (mkdtemp(home) == nullptr) {
      std::fprintf(stderr, "no temporary folder\n");
      std::abort();
    }
    setenv("KVALO_HOME", home, 1);
    setenv("KVALO_LOG_LEVEL", "9", 1);
    std::atexit([] { std::filesystem::remove_all(home); });
    return true;
  }();
  (void)given;
  return home;
}
