// Tag tables: numbers of texts within a session, across sessions, and between processes.
#include "runtime/tag.h"

#include <gmock/gmock.h>

#include <cmath>
#include <set>

#include "runtime/exc.h"
#include "runtime/home.h"

namespace tag = mirn3::tag;
namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

using TagTest = Home;

std::string text_number(int i) { return "text " + std::to_string(i); }

TEST_F(TagTest, NumbersCountUpFromZeroInEveryKeyAndStay) {
  EXPECT_EQ(tag::get("mode", 0.0), "");
  tag::load();
  tag::save();
  EXPECT_TRUE(fs::is_empty(folder)) << "reading made a file";
  for (int session = 0; session < 3; ++session) {
    for (const auto& [key, count] : {std::pair{"mode", 100}, {"", 100}, {"column", 300000}}) {
      for (int i = 0; i < count; ++i) ASSERT_EQ(tag::fetch_or_create(key, text_number(i)), i) << key;
      EXPECT_EQ(tag::fetch_or_create(key, ""), count);
      // New in every session: numbers go on without a gap.
      EXPECT_EQ(tag::fetch_or_create(key, "session " + std::to_string(session)), count + 1 + session);
      EXPECT_EQ(tag::get(key, 7.0), "text 7");
    }
    if (session == 0) tag::save();
    restart();  // saves as well
  }
  for (const double value : {-1.0, 0.5, 104.0, 1e300, double{NAN}, double{INFINITY}, 0x1p53}) {
    EXPECT_EQ(tag::get("mode", value), "") << value;
  }
  EXPECT_EQ(tag::get("mode", -0.0), "text 0");
}

TEST_F(TagTest, LoadTakesInWhatAnotherProcessSaved) {
  tag::fetch_or_create("mode", "AUTO");
  EXPECT_EQ(tag::get("late", 0.0), "");
  tag::save();
  const pid_t other = start_process([] {
    EXPECT_EQ(tag::fetch_or_create("mode", "LOITER"), 1.0);
    EXPECT_EQ(tag::fetch_or_create("late", "first"), 0.0);
    tag::save();
    return !HasFailure();
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
  // that the others add too, and report what they were given.
  constexpr int each = 3000;
  for (int i = 0; i < 5; ++i) tag::fetch_or_create("mode", "before the fork " + std::to_string(i));
  const auto add = [&](size_t who) {
    std::ofstream report(folder / std::to_string(who));
    for (int i = 0; i < each; ++i) {
      const std::string text = (i % 10 == 0 ? "common" : std::to_string(who)) + "-" + text_number(i);
      report << std::fixed << tag::fetch_or_create("mode", text) << '\t' << text << '\n';
      if (i % 400 == 399) tag::save();
    }
    tag::save();
    return report.flush().good();
  };
  run_processes(
      3, [&](size_t i) { return add(i + 1); }, [&] { EXPECT_TRUE(add(0)); });
  restart();
  for (size_t who = 0; who <= 3; ++who) {
    std::ifstream report(folder / std::to_string(who));
    int count = 0;
    for (std::string number, text; std::getline(report >> number >> std::ws, text); ++count) {
      EXPECT_EQ(tag::get("mode", std::stod(number)), text) << number << " was given to another text as well";
    }
    EXPECT_EQ(count, each);
  }
}

TEST_F(TagTest, KilledProcessLeavesTheTablesWhole) {
  constexpr int each = 20;
  const auto text = [](int32_t step, int i) { return std::to_string(step) + "-" + text_number(i); };
  int32_t first = 0;
  for (int round = 0; round < 5; ++round) {
    const int32_t last = kill_in_step(first, 3 + round, [&](int32_t step) {
      for (int i = 0; i < each; ++i) tag::fetch_or_create("mode", text(step, i));
      tag::save();
    });
    restart();
    // Every saved text is found again under one number that no other has, and new numbers are free.
    const double fresh = tag::fetch_or_create("mode", "new " + std::to_string(round));
    for (int32_t step = first; step <= last; ++step) {
      for (int i = 0; i < each; ++i) {
        const double number = tag::fetch_or_create("mode", text(step, i));
        EXPECT_LT(number, fresh) << "was not saved";
        EXPECT_EQ(tag::get("mode", number), text(step, i));
      }
    }
    first = last + 1;
  }
}

TEST_F(TagTest, ThreadsGetOneNumberForOneText) {
  std::vector<std::vector<double>> numbers(4, std::vector<double>(5000));
  run_threads(4, [&](size_t thread) {
    for (int i = 0; i < 5000; ++i) numbers[thread][i] = tag::fetch_or_create("mode", text_number(i));
  });
  for (const auto& other : numbers) EXPECT_EQ(other, numbers[0]);
  EXPECT_EQ(std::set<double>(numbers[0].begin(), numbers[0].end()).size(), 5000u);
}

TEST_F(TagTest, WithoutAStoreTextsLiveInMemoryUntilItCanBeUsed) {
  fs::create_directories(folder / "state.db");  // a folder where the file should be
  for (int i = 0; i < 100; ++i) EXPECT_EQ(tag::fetch_or_create("mode", text_number(i)), i);
  EXPECT_EQ(tag::get("mode", 42.0), "text 42");
  tag::load();
  EXPECT_THAT(message_of<mirn3::exc::error_t>(tag::save), HasSubstr("state.db"));
  EXPECT_EQ(tag::fetch_or_create("mode", text_number(42)), 42.0);
  EXPECT_EQ(log_lines("Z 2 ").size(), 1u);

  fs::remove(folder / "state.db");
  tag::save();
  EXPECT_EQ(tag::fetch_or_create("mode", "later"), 100.0);
  restart();
  EXPECT_EQ(tag::get("mode", 42.0), "text 42");
  EXPECT_EQ(tag::get("mode", 100.0), "later");
}

TEST_F(TagTest, NumbersGivenWithoutTheStoreNeverOverwriteSavedOnes) {
  const fs::path file = folder / "state.db";
  tag::fetch_or_create("mode", "saved");
  restart();
  fs::rename(file, folder / "aside");
  fs::create_directory(file);
  EXPECT_EQ(tag::fetch_or_create("mode", "made up"), 0.0);
  fs::remove(file);
  fs::rename(folder / "aside", file);
  tag::save();
  EXPECT_THAT(log_lines().back(), HasSubstr("1 texts of samples were not saved"));
  EXPECT_EQ(tag::get("mode", 0.0), "made up");  // in this session
  EXPECT_EQ(tag::get("mode", tag::fetch_or_create("mode", "new")), "new");
  restart();
  EXPECT_EQ(tag::get("mode", 0.0), "saved");
}

}  // namespace
