// What the tests of the runtime share: a fresh home folder for each test, and other processes.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/init.h"

// The runtime's files lie in a folder of their own, which is empty at first and goes with the test.
class Home : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "kvalo-test-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder = pattern;
    restart(folder);
  }

  void TearDown() override {
    mirn3::shut();
    std::filesystem::remove_all(folder);
    ::unsetenv("KVALO_HOME");
    ::unsetenv("KVALO_LOG_LEVEL");
  }

  // Ends the runtime; whatever is used next begins anew, as in another process.
  static void restart(const std::filesystem::path& home) {
    mirn3::shut();
    ::setenv("KVALO_HOME", home.c_str(), 1);
  }
  void restart() const { restart(folder); }

  std::vector<std::string> log_lines(const std::string& file = "kvalo.log") const {
    std::ifstream stream(folder / file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }

  std::filesystem::path folder;
};

// Runs work in a forked process, which ends with 0 if the work returns true.
inline pid_t start_process(const std::function<bool()>& work) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  bool good = false;
  try {
    good = work();
  } catch (...) {
  }
  ::_exit(good ? 0 : 1);
}

// The status of a process that start_process() made: 0, 1, or minus the signal that ended it.
inline int wait_for(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

// The message of the exception that `work` throws; empty if it throws none.
template <typename Exception>
std::string message_of(const std::function<void()>& work) {
  try {
    work();
  } catch (const Exception& e) {
    return e.what();
  }
  return {};
}
