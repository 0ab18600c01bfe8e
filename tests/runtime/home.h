// What the tests share: a fresh home folder for each test, other processes, threads.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
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

  // Ends the runtime; what is used next starts afresh, as in another process.
  static void restart(const std::filesystem::path& home) {
    mirn3::shut();
    ::setenv("KVALO_HOME", home.c_str(), 1);
  }
  void restart() const { restart(folder); }

  std::filesystem::path make(const std::string& name, const std::string& content) const {
    std::ofstream(folder / name, std::ios::binary) << content;
    return folder / name;
  }

  static std::string content(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  // The lines of a log that contain this text.
  std::vector<std::string> log_lines(const std::string& part = "", const char* file = "kvalo.log") const {
    std::ifstream stream(folder / file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
      if (line.find(part) != std::string::npos) lines.push_back(line);
    }
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

// Runs work(0), work(1), ... in a process each, and `meanwhile` in this one. Every work must return true.
inline void run_processes(
    size_t count, const std::function<bool(size_t)>& work, const std::function<void()>& meanwhile = [] {}) {
  std::vector<pid_t> processes;
  for (size_t i = 0; i < count; ++i) processes.push_back(start_process([&] { return work(i); }));
  meanwhile();
  for (const pid_t process : processes) EXPECT_EQ(wait_for(process), 0);
}

// Has another process do step(first), step(first + 1), ..., kills it when `count` steps are confirmed, and
// says the last one that was done for sure (the next one may be).
inline int32_t kill_in_step(int32_t first, int32_t count, const std::function<void(int32_t)>& step) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  const pid_t writer = start_process([&] {
    for (int32_t i = first;; ++i) {
      step(i);
      if (::write(ends[1], &i, sizeof i) != sizeof i) return false;
    }
  });
  ::close(ends[1]);
  int32_t confirmed = -1;
  while (::read(ends[0], &confirmed, sizeof confirmed) == 4) {
    if (confirmed == first + count - 1) ::kill(writer, SIGKILL);
  }
  ::close(ends[0]);
  EXPECT_EQ(wait_for(writer), -SIGKILL);
  return confirmed;
}

inline void run_threads(size_t count, const std::function<void(size_t)>& work) {
  std::vector<std::thread> threads;
  for (size_t i = 0; i < count; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
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
