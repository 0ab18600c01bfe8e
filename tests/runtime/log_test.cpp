// The log file: form of the lines, levels, rotation, and places that cannot be written.
#include "runtime/log.h"

#include <gmock/gmock.h>

#include <atomic>
#include <map>

#include "runtime/home.h"

namespace {

namespace log = mirn3::log;
using LogTest = Home;

TEST_F(LogTest, EveryEntryIsOneLine) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"two\nlines\r\nand a tab\t.", "two\\nlines\\r\\nand a tab\\t."},
      {std::string("zero\0", 5) + "bell\a escape\x1b[31m delete\x7f",
       "zero\\x00bell\\x07 escape\\x1b[31m delete\\x7f"},
      {"braces {} {:s} and %s, höhe 20 µm", "braces {} {:s} and %s, höhe 20 µm"},
      {std::string(300000, 'x'), std::string(300000, 'x')},
      {"not UTF-8: \xff, \xc3, cut: \xe2\x82", "not UTF-8: \\xff, \\xc3, cut: \\xe2\\x82"},
  };
  for (const auto& [text, written] : cases) log::write(log::error, text);
  const auto lines = log_lines();
  ASSERT_EQ(lines.size(), std::size(cases));
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_THAT(
        lines[i].substr(0, 30),
        testing::MatchesRegex("20[0-9]{2}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z 3 "));
    EXPECT_EQ(lines[i].substr(30), cases[i].second);
  }
}

TEST_F(LogTest, LevelDecidesWhatIsWritten) {
  const std::pair<const char*, std::string> cases[] = {
      {nullptr, "123"}, {"0", "0123"}, {"2", "23"}, {"9", ""}, {"high", "123"}, {"2x", "123"}, {"-1", "123"}};
  for (const auto& [level, written] : cases) {
    restart();
    std::filesystem::remove(folder / "kvalo.log");
    level != nullptr ? ::setenv("KVALO_LOG_LEVEL", level, 1) : ::unsetenv("KVALO_LOG_LEVEL");
    std::string severities;
    for (int severity = 0; severity <= 3; ++severity) {
      log::write(severity, "text");
      EXPECT_EQ(log::enabled(severity), written.find(static_cast<char>('0' + severity)) != std::string::npos);
    }
    for (const std::string& line : log_lines()) severities += line.at(28);
    EXPECT_EQ(severities, written) << (level != nullptr ? level : "no level");
  }
}

TEST_F(LogTest, FoldersAreMadeWithTheFirstWrittenEntryIfTheyCanBe) {
  restart(folder / "deep" / "home");
  log::write(log::trace, "not written");
  EXPECT_FALSE(std::filesystem::exists(folder / "deep"));
  log::write(log::info, "written");
  EXPECT_EQ(log_lines("written", "deep/home/kvalo.log").size(), 1u);

  restart(make("file", "in the way") / "below");
  log::write(log::error, "lost");
  log::write(log::error, "lost as well");
  restart();
  log::write(log::error, "kept");
  EXPECT_EQ(log_lines().size(), 1u);
}

TEST_F(LogTest, RotatesBySizeWithoutLosingLines) {
  const std::string text(1000, 'r');
  constexpr size_t entries = 12000;  // 12 MB: two rotations
  for (size_t i = 0; i < entries; ++i) log::write(log::info, text);
  log::close();
  size_t lines = 0, files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    ++files;
    EXPECT_LE(entry.file_size(), size_t{5} << 20);
    lines += log_lines(" 1 " + text, entry.path().filename().c_str()).size();
  }
  EXPECT_EQ(files, 3u);
  EXPECT_EQ(lines, entries);
}

TEST_F(LogTest, ThreadsAndProcessesDoNotMixLines) {
  constexpr size_t each = 500;
  std::atomic<bool> stop{false};
  std::thread busy([&] {
    while (!stop) log::write(log::info, std::string(50, 'z'));
  });
  run_processes(4, [&](size_t child) {  // forked while another thread is in the middle of an entry
    for (size_t i = 0; i < each; ++i) log::write(log::info, std::string(100 + i, "abcd"[child]));
    return true;
  });
  stop = true;
  busy.join();
  std::map<char, size_t> counts;
  for (const char* file : {"kvalo.log", "kvalo.1.log", "kvalo.2.log"}) {
    for (const std::string& line : log_lines("", file)) {
      ASSERT_GT(line.size(), 30u);
      EXPECT_EQ(line.find_first_not_of(line[30], 30), std::string::npos) << line;
      ++counts[line[30]];
    }
  }
  for (const char mark : {'a', 'b', 'c', 'd'}) EXPECT_EQ(counts[mark], each) << mark;
}

}  // namespace
