// Tag tables: numbers of texts within a session, across sessions, and between processes.
#include "runtime/tag.h"

#include <gmock/gmock.h>

#include <cmath>
#include <csignal>
#include <limits>
#include <map>
#include <set>
#include <thread>

#include "runtime/exc.h"
#include "runtime/home.h"

namespace tag = mirn3::tag;
using testing::HasSubstr;

namespace {

using TagTest = Home;

std::string text_number(size_t i) { return "text " + std::to_string(i); }

TEST_F(TagTest, NumbersCountUpFromZeroInEveryKeyAndStay) {
  for (int session = 0; session < 3; ++session) {
    for (const char* key : {"mode", "state", ""}) {
      for (size_t i = 0; i < 100; ++i)
        EXPECT_EQ(tag::fetch_or_create(key, text_number(i)), static_cast<double>(i));
      EXPECT_EQ(tag::fetch_or_create(key, ""), 100.0);
      // New in every session: numbers go on without a gap.
      EXPECT_EQ(tag::fetch_or_create(key, "session " + std::to_string(session)), 101.0 + session);
      EXPECT_EQ(tag::get(key, 7.0), "text 7");
    }
    tag::save();
    restart();
  }
}

TEST_F(TagTest, OnlyKnownWholeNumbersHaveTexts) {
  tag::fetch_or_create("mode", "AUTO");
  for (const double value :
       {-1.0, 0.5, 1.0, 1e300, std::nan(""), std::numeric_limits<double>::infinity(), 0x1p53}) {
    EXPECT_EQ(tag::get("mode", value), "") << value;
  }
  EXPECT_EQ(tag::get("mode", -0.0), "AUTO");
  EXPECT_EQ(tag::get("another", 0.0), "");
}

TEST_F(TagTest, ShutSavesAndReadingMakesNoFile) {
  EXPECT_EQ(tag::get("mode", 0.0), "");
  tag::load();
  tag::save();
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  tag::fetch_or_create("mode", "AUTO");
  restart();
  EXPECT_EQ(tag::get("mode", 0.0), "AUTO");
}

TEST_F(TagTest, LoadTakesInWhatAnotherProcessSaved) {
  tag::fetch_or_create("mode", "AUTO");
  EXPECT_EQ(tag::get("late", 0.0), "");
  tag::save();
  const pid_t other = start_process([] {
    const bool numbers =
        tag::fetch_or_create("mode", "LOITER") == 1.0 && tag::fetch_or_create("late", "first") == 0.0;
    tag::save();
    return numbers;
  });
  EXPECT_EQ(wait_for(other), 0);
  EXPECT_EQ(tag::get("mode", 1.0), "");
  tag::load();
  EXPECT_EQ(tag::get("mode", 1.0), "LOITER");
  EXPECT_EQ(tag::get("late", 0.0), "first");
  EXPECT_EQ(tag::fetch_or_create("mode", "LOITER"), 1.0);
  EXPECT_EQ(tag::fetch_or_create("mode", "RTL"), 2.0);
}

TEST_F(TagTest, ProcessesNeverShareANumber) {
  // The parent holds claimed and unsaved numbers when it is forked; all add texts of their own and some
  // that the others add too.
  constexpr size_t each = 3000;
  tag::fetch_or_create("mode", "before the fork");
  for (int i = 0; i < 5; ++i) tag::fetch_or_create("mode", "parent " + std::to_string(i));
  std::map<double, std::string> numbers;  // what was given out, in every process
  std::vector<pid_t> children;
  std::vector<int> pipes;
  const auto add = [&](int who, const std::function<void(double, const std::string&)>& given) {
    for (size_t i = 0; i < each; ++i) {
      const std::string text =
          i % 10 == 0 ? "common " + std::to_string(i) : std::to_string(who) + "-" + text_number(i);
      given(tag::fetch_or_create("mode", text), text);
      if (i % 400 == 0) tag::save();
    }
    tag::save();
  };
  for (int who = 1; who <= 3; ++who) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    children.push_back(start_process([&] {
      std::string report;
      add(who, [&](double number, const std::string& text) {
        report += std::to_string(number) + "\t" + text + "\n";
      });
      for (size_t done = 0; done < report.size();) {
        const ssize_t written = ::write(ends[1], report.data() + done, report.size() - done);
        if (written <= 0) return false;
        done += static_cast<size_t>(written);
      }
      return true;
    }));
    ::close(ends[1]);
    pipes.push_back(ends[0]);
  }
  const auto note = [&](double number, const std::string& text) {
    const auto [place, is_new] = numbers.emplace(number, text);
    EXPECT_TRUE(is_new || place->second == text)
        << number << " is '" << place->second << "' and '" << text << "'";
  };
  add(0, note);
  for (size_t child = 0; child < children.size(); ++child) {
    std::string report;
    char buffer[65536];
    for (ssize_t got; (got = ::read(pipes[child], buffer, sizeof buffer)) > 0;) report.append(buffer, got);
    ::close(pipes[child]);
    EXPECT_EQ(wait_for(children[child]), 0);
    std::istringstream lines(report);
    size_t count = 0;
    for (std::string number, text; std::getline(lines, number, '\t') && std::getline(lines, text); ++count) {
      note(std::stod(number), text);
    }
    EXPECT_EQ(count, each);
  }
  restart();
  for (const auto& [number, text] : numbers) EXPECT_EQ(tag::get("mode", number), text);
}

TEST_F(TagTest, KilledProcessLeavesTheTablesWhole) {
  for (int round = 0; round < 5; ++round) {
    int sign[2];
    ASSERT_EQ(::pipe(sign), 0);
    const pid_t writer = start_process([&] {
      for (size_t i = 0;; ++i) {
        tag::fetch_or_create("mode", std::to_string(round) + "-" + text_number(i));
        if (i % 20 == 19) {
          tag::save();
          if (::write(sign[1], "s", 1) != 1) return false;
        }
      }
    });
    char byte;
    for (int i = 0; i < 3 + round; ++i) ASSERT_EQ(::read(sign[0], &byte, 1), 1);
    ::kill(writer, SIGKILL);
    EXPECT_EQ(wait_for(writer), -SIGKILL);
    ::close(sign[0]);
    ::close(sign[1]);
    restart();
    // Every saved text is found again under one number, and new numbers are free.
    std::set<double> numbers;
    for (size_t i = 0; i < 20u * static_cast<size_t>(3 + round); ++i) {
      numbers.insert(tag::fetch_or_create("mode", std::to_string(round) + "-" + text_number(i)));
    }
    EXPECT_EQ(numbers.size(), 20u * static_cast<size_t>(3 + round));
    EXPECT_EQ(tag::get("mode", *numbers.rbegin() + 0.0),
              std::to_string(round) + "-" + text_number(20u * static_cast<size_t>(3 + round) - 1));
    EXPECT_EQ(tag::get("mode", tag::fetch_or_create("mode", "new " + std::to_string(round))),
              "new " + std::to_string(round));
  }
}

TEST_F(TagTest, MillionTexts) {
  constexpr size_t count = 1000000;
  for (size_t i = 0; i < count; ++i)
    ASSERT_EQ(tag::fetch_or_create("column", text_number(i)), static_cast<double>(i));
  tag::save();
  EXPECT_EQ(tag::fetch_or_create("column", "one more"), static_cast<double>(count));
  restart();
  EXPECT_EQ(tag::get("column", count - 1.0), text_number(count - 1));
  EXPECT_EQ(tag::get("column", static_cast<double>(count)), "one more");
}

TEST_F(TagTest, ThreadsGetOneNumberForOneText) {
  std::vector<std::vector<double>> numbers(4, std::vector<double>(5000));
  std::vector<std::thread> threads;
  for (auto& mine : numbers) {
    threads.emplace_back([&mine] {
      for (size_t i = 0; i < mine.size(); ++i) mine[i] = tag::fetch_or_create("mode", text_number(i));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const auto& other : numbers) EXPECT_EQ(other, numbers[0]);
  EXPECT_EQ(std::set<double>(numbers[0].begin(), numbers[0].end()).size(), 5000u);
}

TEST_F(TagTest, WithoutAStoreTextsLiveInMemory) {
  std::filesystem::create_directories(folder / "home" / "state.db");  // a folder where the file should be
  restart(folder / "home");
  for (size_t i = 0; i < 100; ++i)
    EXPECT_EQ(tag::fetch_or_create("mode", text_number(i)), static_cast<double>(i));
  EXPECT_EQ(tag::get("mode", 42.0), "text 42");
  tag::load();
  const std::string first = message_of<mirn3::exc::error_t>(tag::save);
  EXPECT_THAT(first, HasSubstr("state.db"));
  EXPECT_EQ(tag::fetch_or_create("mode", text_number(42)), 42.0);
  size_t warnings = 0;
  for (const std::string& line : log_lines("home/kvalo.log"))
    warnings += line.find(" 2 ") != std::string::npos;
  EXPECT_EQ(warnings, 1u);

  // The store can be used again: what was kept is saved, and numbering goes on.
  std::filesystem::remove(folder / "home" / "state.db");
  tag::save();
  EXPECT_EQ(tag::fetch_or_create("mode", "later"), 100.0);
  restart(folder / "home");
  EXPECT_EQ(tag::get("mode", 42.0), "text 42");
  EXPECT_EQ(tag::get("mode", 100.0), "later");
}

TEST_F(TagTest, NumbersGivenWithoutTheStoreNeverOverwriteSavedOnes) {
  const std::filesystem::path file = folder / "state.db";
  tag::fetch_or_create("mode", "saved");
  restart();
  std::filesystem::rename(file, folder / "aside");
  std::filesystem::create_directory(file);
  EXPECT_EQ(tag::fetch_or_create("mode", "made up"), 0.0);
  std::filesystem::remove(file);
  std::filesystem::rename(folder / "aside", file);
  tag::save();
  EXPECT_THAT(log_lines().back(), HasSubstr("1 texts of samples were not saved"));
  EXPECT_EQ(tag::get("mode", 0.0), "made up");  // in this session
  EXPECT_EQ(tag::get("mode", tag::fetch_or_create("mode", "new")), "new");
  restart();
  EXPECT_EQ(tag::get("mode", 0.0), "saved");
}

}  // namespace
