// Identifiers, text helpers, message ids, variants, and work on all cores.
#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>

#include "kvalo/host.h"
#include "runtime/exc.h"
#include "runtime/home.h"
#include "runtime/num.h"
#include "runtime/par.h"
#include "runtime/rtd.h"
#include "runtime/str.h"

namespace num = mirn3::num;
namespace par = mirn3::par;
namespace str = mirn3::str;
using mirn3::var_t;

namespace {

TEST(IdTest, AscendAndAreTakenForIdsAlone) {
  uint64_t previous = 0;
  for (int i = 0; i < 1000; ++i) {
    const uint64_t id = num::create_id();
    EXPECT_GT(id, previous);
    EXPECT_GT(id, 0xffffffu);
    EXPECT_TRUE(num::check_id(id));
    for (const uint64_t other : {id + 1, id - 1, id ^ 0x800000, id << 1, id + (uint64_t{1} << 24)}) {
      EXPECT_FALSE(num::check_id(other)) << other;
    }
    previous = id;
  }
  for (uint64_t small = 0; small < 100000; ++small) EXPECT_FALSE(num::check_id(small));
  EXPECT_FALSE(num::check_id(~uint64_t{0}));
}

TEST(IdTest, ThreadsGetDifferentOnes) {
  std::array<std::vector<uint64_t>, 4> ids;
  std::vector<std::thread> threads;
  for (auto& mine : ids) {
    threads.emplace_back([&mine] {
      for (int i = 0; i < 5000; ++i) mine.push_back(num::create_id());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<uint64_t> all;
  for (const auto& mine : ids) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), 20000u);
}

TEST(StrTest, RandomTextsAreNames) {
  std::set<std::string> seen;
  for (int i = 0; i < 2000; ++i) {
    const std::string text = str::random(8);
    EXPECT_THAT(text, testing::MatchesRegex("[a-zA-Z][a-zA-Z0-9]{7}"));
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 2000u);
  EXPECT_EQ(str::random(0), "");
  const std::string longer = str::random(100000);
  EXPECT_EQ(std::set<char>(longer.begin(), longer.end()).size(), 62u);
}

TEST(StrTest, ReplaceAll) {
  const struct {
    std::string text, from, to, result;
  } cases[] = {
      {"a.b.c", ".", "::", "a::b::c"}, {"aaa", "aa", "b", "ba"},
      {"abc", "", "x", "abc"},         {"", "a", "b", ""},
      {"a", "a", "aa", "aa"},          {"abab", "ab", "", ""},
      {"xyz", "w", "v", "xyz"},        {"short", "longer", "", "short"},
  };
  for (const auto& c : cases) EXPECT_EQ(str::replace_all(c.text, c.from, c.to), c.result) << c.text;
}

TEST(StrTest, LowerCaseOfAsciiAlone) { EXPECT_EQ(str::to_lower("AZaz09[]@`ÄÖ"), "azaz09[]@`ÄÖ"); }

TEST(StrTest, TextsBecomeUtf8) {
  const struct {
    std::string_view text, utf8;
  } cases[] = {
      {"", ""},
      {"plain", "plain"},
      {"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x9A\x81", "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x9A\x81"},  // valid, stays
      {"\xB0"
       "C",
       "\xC2\xB0"
       "C"},                                                     // Latin-1
      {"\xC3\xA9\xFF", "\xC3\x83\xC2\xA9\xC3\xBF"},              // one bad byte: all of it is Latin-1
      {"\xC0\x80", "\xC3\x80\xC2\x80"},                          // overlong
      {"\xED\xA0\x80", "\xC3\xAD\xC2\xA0\xC2\x80"},              // surrogate
      {"\xF4\x90\x80\x80", "\xC3\xB4\xC2\x90\xC2\x80\xC2\x80"},  // beyond Unicode
      {"\xE2\x82", "\xC3\xA2\xC2\x82"},                          // cut
  };
  for (const auto& [text, utf8] : cases) EXPECT_EQ(str::to_utf8(text), utf8) << text;
}

TEST(HostTest, MessageIds) {
  // Worked out apart from this code, with Python's unbounded integers.
  EXPECT_EQ(mirn3::ilc::name_hash(""), 5381u);
  EXPECT_EQ(mirn3::ilc::name_hash("app_exit"), 0x6a40e99bu);
  EXPECT_EQ(mirn3::ilc::name_hash("\xc3\xa4"), 0x596882u);  // bytes past 127 are negative
}

TEST(HostTest, VariantsOwnTheirText) {
  var_t text = var_t::of("text");
  var_t copy = text;
  copy.value.text[0] = 'n';
  EXPECT_STREQ(text.value.text, "text");
  text = copy;
  EXPECT_STREQ(text.value.text, "next");
  text = *&text;
  const var_t moved = std::move(text);
  EXPECT_STREQ(moved.value.text, "next");
  EXPECT_EQ(text.tag, 0);  // NOLINT: a variant that was moved from is empty
  copy = var_t::of(2.5);
  EXPECT_EQ(copy.tag, 12);
  EXPECT_EQ(copy.value.float64, 2.5);
  EXPECT_EQ(var_t::of(static_cast<const char*>(nullptr)).tag, 0);
  EXPECT_EQ(var_t::of(uint32_t{7}).tag, 8);
}

TEST(LifeTest, StateOfTheProcess) {
  EXPECT_FALSE(mirn3::is_app());
  mirn3::set_app(true);
  EXPECT_TRUE(mirn3::is_app());
  mirn3::set_app(false);
  mirn3::init_pyd();
  EXPECT_TRUE(mirn3::is_pyd());
  mirn3::shut();
  mirn3::shut();
  EXPECT_FALSE(mirn3::is_pyd());
  mirn3::rtd::set_online();
  EXPECT_TRUE(mirn3::rtd::is_online());
  mirn3::rtd::set_offline();
  EXPECT_FALSE(mirn3::rtd::is_online());
}

TEST(ExcTest, CarriesMessageAndCode) {
  try {
    throw mirn3::exc::error_t("what happened", 42);
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "what happened");
    EXPECT_EQ(dynamic_cast<const mirn3::exc::error_t&>(e).code(), 42);
  }
}

TEST(ParTest, EveryPartRunsOnce) {
  for (const size_t parts : {size_t{0}, size_t{1}, size_t{2}, size_t{1000}}) {
    std::vector<std::atomic<int>> runs(parts);
    par::run(parts, [&](size_t part) { ++runs.at(part); });
    for (const auto& count : runs) EXPECT_EQ(count, 1);
  }
}

TEST(ParTest, RangesCoverEveryElementOnce) {
  for (const size_t n : {size_t{0}, size_t{1}, size_t{7}, size_t{1001}}) {
    for (const size_t least : {size_t{0}, size_t{1}, size_t{3}, size_t{5000}}) {
      std::vector<std::atomic<int>> runs(n);
      std::atomic<bool> long_enough{true};
      par::ranges(n, least, [&](size_t first, size_t last) {
        if (last - first < std::min(std::max(least, size_t{1}), n)) long_enough = false;
        for (size_t i = first; i < last; ++i) ++runs.at(i);
      });
      EXPECT_TRUE(long_enough);
      for (const auto& count : runs) EXPECT_EQ(count, 1) << n << " by " << least;
    }
  }
}

TEST(ParTest, ExceptionOfTheLowestPartAfterAllHaveEnded) {
  std::atomic<int> ended{0};
  EXPECT_EQ(message_of<std::runtime_error>([&] {
              par::run(64, [&](size_t part) {
                ++ended;
                if (part % 10 == 7) throw std::runtime_error("part " + std::to_string(part));
              });
            }),
            "part 7");
  EXPECT_EQ(ended, 64);
}

TEST(ParTest, CountOfWorkersCanBeSet) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own, which has not asked yet
  const struct {
    const char* asked;
    bool counts;
  } cases[] = {{"3", true}, {"0", false}, {"many", false}, {"-1", false}};
  for (const auto& c : cases) {
    EXPECT_EXIT(
        {
          const size_t own = std::thread::hardware_concurrency();
          ::setenv("KVALO_THREADS", c.asked, 1);
          const size_t workers = par::workers();
          ::_exit(c.counts ? workers == 3 : workers >= 1 && workers <= own);
        },
        testing::ExitedWithCode(1), "")
        << c.asked;
  }
}

}  // namespace
