// Identifiers, text helpers, message ids, variants, and work on all cores.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <set>
#include <stdexcept>

#include "kvalo/host.h"
#include "runtime/home.h"
#include "runtime/num.h"
#include "runtime/par.h"
#include "runtime/str.h"

namespace num = mirn3::num;
namespace par = mirn3::par;
namespace str = mirn3::str;
using mirn3::var_t;

namespace {

TEST(IdTest, ThoseOfAllThreadsDifferAndAscend) {
  std::array<std::vector<uint64_t>, 4> ids;
  run_threads(4, [&](size_t thread) {
    for (int i = 0; i < 5000; ++i) ids[thread].push_back(num::create_id());
  });
  std::set<uint64_t> all;
  for (const auto& mine : ids) {
    EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
    all.insert(mine.begin(), mine.end());
  }
  EXPECT_EQ(all.size(), 20000u);
  EXPECT_GT(*all.begin(), 0xffffffu);
  EXPECT_EQ(num::check_id(7), 7u);
  EXPECT_FALSE(all.contains(num::check_id(0)));
  EXPECT_NE(num::check_id(0), 0u);
}

TEST(StrTest, RandomTextsAreNamesThatDiffer) {
  std::set<std::string> seen;
  for (int i = 0; i < 2000; ++i) seen.insert(str::random(8));
  EXPECT_EQ(seen.size(), 2000u);
  EXPECT_THAT(seen, testing::Each(testing::MatchesRegex("[a-zA-Z][a-zA-Z0-9]{7}")));
  EXPECT_EQ(str::random(0), "");

  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  if (::fork() == 0) {
    const std::string drawn = str::random(16);
    ::_exit(::write(ends[1], drawn.data(), drawn.size()) == 16 ? 0 : 1);
  }
  std::string of_child(16, ' ');
  EXPECT_EQ(::read(ends[0], of_child.data(), of_child.size()), 16);
  EXPECT_NE(of_child, str::random(16)) << "a forked child must not go on with the same bytes";
  ::wait(nullptr);
  ::close(ends[0]), ::close(ends[1]);
}

TEST(StrTest, ReplacedAndLowered) {
  const std::array<std::string, 4> cases[] = {{"a.b.c", ".", "::", "a::b::c"}, {"aaa", "aa", "b", "ba"},
                                              {"abc", "", "x", "abc"},         {"", "a", "b", ""},
                                              {"a", "a", "aa", "aa"},          {"abab", "ab", "", ""}};
  for (const auto& [text, from, to, result] : cases) EXPECT_EQ(str::replace_all(text, from, to), result);
  EXPECT_EQ(str::to_lower("AZaz09[]@`ÄÖ"), "azaz09[]@`ÄÖ");
}

TEST(StrTest, TextsThatAreNotUtf8AreTakenForLatin1) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x9A\x81", "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x9A\x81"},  // valid, stays
      {"\xB0 C", "\xC2\xB0 C"},
      {"\xC3\xA9\xFF", "\xC3\x83\xC2\xA9\xC3\xBF"},              // one bad byte: all of it is Latin-1
      {"\xC0\x80", "\xC3\x80\xC2\x80"},                          // overlong
      {"\xED\xA0\x80", "\xC3\xAD\xC2\xA0\xC2\x80"},              // surrogate
      {"\xF4\x90\x80\x80", "\xC3\xB4\xC2\x90\xC2\x80\xC2\x80"},  // beyond Unicode
      {"\xE2\x82", "\xC3\xA2\xC2\x82"},                          // cut
  };
  for (const auto& [text, utf8] : cases) EXPECT_EQ(str::to_utf8(text), utf8) << text;
}

TEST(HostTest, MessageIdsTakeBytesPast127AsNegative) {
  // Worked out apart from this code, with Python's unbounded integers.
  EXPECT_EQ(mirn3::ilc::name_hash("app_exit"), 0x6a40e99bu);
  EXPECT_EQ(mirn3::ilc::name_hash("\xc3\xa4"), 0x596882u);
}

TEST(HostTest, VariantsOwnTheirText) {
  var_t text = var_t::of("text");
  var_t copy = text;
  copy.value.text[0] = 'n';
  EXPECT_STREQ(text.value.text, "text");
  text = copy;
  text = *&text;
  const var_t moved = std::move(text);
  EXPECT_STREQ(moved.value.text, "next");
  EXPECT_EQ(text.tag, 0);  // NOLINT: a variant that was moved from is empty
  copy = var_t::of(2.5);
  EXPECT_EQ(copy.value.float64, 2.5);
  EXPECT_EQ(var_t::of(static_cast<const char*>(nullptr)).tag, 0);
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

TEST(ParTest, ExceptionOfTheLowestPartComesAfterEveryPartRanOnce) {
  std::array<std::atomic<int>, 64> runs{};
  EXPECT_EQ(message_of<std::runtime_error>([&] {
              par::run(64, [&](size_t part) {
                ++runs.at(part);
                if (part % 10 == 7) throw std::runtime_error("task " + std::to_string(part));
              });
            }),
            "task 7");
  for (const auto& count : runs) EXPECT_EQ(count, 1);
}

TEST(ParTest, CountOfWorkersCanBeSet) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own, which has not asked yet
  for (const std::string asked : {"3", "0", "many", "-1"}) {
    EXPECT_EXIT(
        {
          ::setenv("KVALO_THREADS", asked.c_str(), 1);
          const size_t workers = par::workers();
          ::_exit(asked == "3" ? workers == 3
                               : workers >= 1 && workers <= std::thread::hardware_concurrency());
        },
        testing::ExitedWithCode(1), "")
        << asked;
  }
}

}  // namespace
