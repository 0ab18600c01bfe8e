// The progress line on a terminal of its own.
#include "runtime/progress.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

// What is written to standard error, as a terminal or as a pipe, while `work` runs.
template <typename Work>
std::string on_standard_error(bool terminal, Work work) {
  int ends[2] = {-1, -1};
  EXPECT_EQ(terminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) : pipe(ends), 0);
  const auto [reader, writer] = ends;
  const int before = dup(STDERR_FILENO);
  dup2(writer, STDERR_FILENO);
  work();
  EXPECT_EQ(::write(STDERR_FILENO, "#", 1), 1);
  dup2(before, STDERR_FILENO);
  close(before);
  std::string text;
  for (char c = 0; ::read(reader, &c, 1) == 1 && c != '#';) text += c;
  close(reader);
  close(writer);
  return text;
}

void work_for(std::chrono::milliseconds time) {
  const mirn3::progress::Line line("Loading a");
  const mirn3::progress::Line inner("Loading b");
  mirn3::progress::report(1, 4);
  std::this_thread::sleep_for(time);
}

constexpr auto brief = std::chrono::milliseconds(20);
constexpr auto lengthy = std::chrono::milliseconds(1300);

TEST(Progress, ShowsOneLineForLongWorkOnATerminalAndWipesIt) {
  const std::string text = on_standard_error(true, [] { work_for(lengthy); });
  EXPECT_TRUE(text.starts_with("\r\x1b[KLoading a ... 25 %, 1.")) << text;
  EXPECT_TRUE(text.ends_with("\r\x1b[K")) << text;
  EXPECT_EQ(text.find("Loading b"), std::string::npos) << text;
}

TEST(Progress, IsSilentForShortWorkPipesAndOnRequest) {
  EXPECT_EQ(on_standard_error(true, [] { work_for(brief); }), "");
  EXPECT_EQ(on_standard_error(false, [] { work_for(lengthy); }), "");
  setenv("KVALO_PROGRESS", "0", 1);
  EXPECT_EQ(on_standard_error(true, [] { work_for(lengthy); }), "");
  unsetenv("KVALO_PROGRESS");
}

}  // namespace
