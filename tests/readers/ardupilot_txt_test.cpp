// ArduPilot text logs: what is offered, which lines belong to a message, and what their words give.
#include "readers/ardupilot_txt.h"

#include <gmock/gmock.h>

#include <cstring>
#include <random>

#include "loading.h"
#include "readers/line_groups.h"
#include "runtime/exc.h"
#include "runtime/mem.h"

namespace {

using mirn2::rd::LineGroups;
using mirn2::rd::ReaderArduPilotTXT;

constexpr const char* head =
    "FMT, 128, 89, FMT, BBnNZ, Type,Length,Name,Format,Columns\n"
    "FMT, 1, 15, ATT, QccC, TimeUS,Roll,Pitch,Yaw\n"
    "FMT, 2, 20, GPS, BIHf, Status,TimeMS,Week,Alt\n"
    "FMT, 3, 20, GPS2, BI, Status,TimeMS\n";

using ArduPilotTxt = Reading<ReaderArduPilotTXT>;

TEST_F(ArduPilotTxt, OffersFieldsOfMessagesThatHaveATime) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {head, {"ATT.Roll", "ATT.Pitch", "ATT.Yaw", "GPS.Status", "GPS.Week", "GPS.Alt", "GPS2.Status"}},
      {"FMT, 1, 9, B, QB, TimeUS,b\r\nFMT, 1, 9, A, BQ, a,Time\r\n", {"A.a", "B.b"}},
      {"FMT, 1, 9, A, QLa?B, TimeUS,L,a,u,B\n", {"A.B"}},
      {"FMT, 1, 9, A, QB, TimeUS,a,b,c\n", {"A.a"}},  // letters for two
      {"FMT, 1, 9, A, QBBB, TimeUS,a,a,\n", {"A.a", "A.a", "A."}},
      {"FMT, 1, 9, A, QQB, TimeUS,Time2,b\n", {"A.Time2", "A.b"}},
      {"FMT, 1, 9, A, B, timeus\n", {}},
      {"FMT, 1, 9, A, L, TimeUS\n", {"A"}},
      {"FMT, 1, 9, A, QB, TimeUS,a\nFMT, 2, 9, A, QB, TimeUS,b\n", {"A.b"}},
      // Declarations after the head, broken ones, and a log without any.
      {"FMT, 1, 9, A, QB, TimeUS,a\nA, 1, 2\nFMT, 1, 9, B, QB, TimeUS,b\n", {"A.a"}},
      {"FMT, 1, 9\nFMT, 1, 9, , QB, TimeUS,a\nnot FMT, 1\nFMT, 1, 9, B, QB, TimeUS,b", {"B.b"}},
      {"PARM, 1, A, 2\nFMT, 1, 9, A, QB, TimeUS,a\n", {}},
      {std::string("\0FMT, 1, 9, A, QB, TimeUS,a\n", 28), {}},
      {"FMT, 1, 9, \xB5, QB, TimeUS,\xB5\n", {"\u00B5.\u00B5"}},
      {"", {}}};
  for (const auto& [log, names] : cases) EXPECT_EQ(leaves(*open(log)), names) << log;
}

TEST_F(ArduPilotTxt, ReadsTheLinesThatBeginWithTheName) {
  auto reader = open(std::string(head) +
                     "ATT, 1000000, 1.5, -2, 3e2\nGPS, 3, 500, 2000, 10.25\nGPS2, 4, 501, 7, 8\r\n"
                     "FMT, 9, 9, ATT, x, y\n ATT, 5, 5, 5\natt, 5, 5, 5, 5\nATT\nATTX, 2500000, 9, 9, 9\n");
  EXPECT_EQ(load(*reader, "ATT.Yaw"), (Samples{{1.0, 2.5}, {300, 9}}));
  EXPECT_EQ(load(*reader, "GPS.Alt"), (Samples{{500 * 0.001, 501 * 0.001}, {10.25, 8}}));
  EXPECT_EQ(load(*reader, "GPS.Status"), (Samples{{500 * 0.001, 501 * 0.001}, {3, 4}}));
  EXPECT_EQ(load(*reader, "GPS2.Status"), (Samples{{501 * 0.001}, {4}}));
  EXPECT_EQ(log_lines(" 2 ").size(), 1u);  // the line that is "ATT" alone, for ATT.Yaw
  EXPECT_THAT(log_lines(" 2 ").back(), testing::HasSubstr("1 of 3 lines end before"));
  EXPECT_THROW(load(*reader, "ATT"), mirn3::exc::error_t);
  EXPECT_THROW(load(*reader, "ATT.Rol"), mirn3::exc::error_t);
  // A message whose name begins that of the declarations does not get them.
  EXPECT_EQ(load(*open("FMT, 1, 9, F, QB, Time,a\nF, 1, 2\nFMT, 1, 2, 3, 4, 5\n"), "F.a"),
            (Samples{{1}, {2}}));
}

TEST_F(ArduPilotTxt, TimesKeptOfOneFieldFitTheOthers) {
  const auto reader = open("FMT, 1, 9, F, Qff, Time,a,b\nF, 1, 10, 20\nF, 2, 11\nF, 3, 12, 22\n");
  const Samples a{{1, 2, 3}, {10, 11, 12}}, b{{1, 3}, {20, 22}};
  for (const bool forgets : {false, true}) {
    EXPECT_EQ(load(*reader, "F.a"), a);
    EXPECT_EQ(load(*reader, "F.b"), b);
    if (forgets) reader->forget();
    EXPECT_EQ(load(*reader, "F.b"), b);
    EXPECT_EQ(load(*reader, "F.a"), a);
  }
}

TEST_F(ArduPilotTxt, ReadsWordsAsNumbers) {
  const std::tuple<std::string, std::string, double, double> cases[] = {
      {"Time", "7, 1.5, 0", 7, 1.5},
      {"Time", "7, -0.25,0", 7, -0.25},
      {"Time", "x, y, 0", NAN, NAN},
      {"Time", "7, +1, 0", 7, NAN},
      {"Time", "7,  1, 0", 7, NAN},  // two blanks: an empty word between them
      {"Time", "7, ", 7, NAN},
      {"Time", "7, 0x10", 7, 0},
      {"Time", "7, 1e400", 7, NAN},
      {"Time", "7, -inf\r5", 7, -INFINITY},
      {"Time", "-7, 123456789.123456789", -7, 123456789.123456789},
      {"Time", std::string("7, 12\0 99", 9), 7, 12},
      {"TimeUS", "2000000, 9", 2e6 * 0.000001, 9},
      {"TimeMS", "2000000, 9", 2e6 * 0.001, 9},
      {"GPSTimeUS", "2000000, 9", 2e6, 9},
      {"GPSTimeMS", "2000000, 9", 2e6, 9},
      {"TimeUS2", "2000000, 9", 2e6, 9}};
  for (const auto& [label, words, x, y] : cases) {
    auto reader = open("FMT, 1, 9, A, QBB, " + label + ",a,b\nA, " + words + "\n");
    EXPECT_EQ(load(*reader, "A.a"), (Samples{{x}, {y}})) << label << " " << words;
  }
}

TEST_F(ArduPilotTxt, LeavesOutALastLineThatIsStillBeingWritten) {
  const std::string log = std::string(head) + "ATT, 1, 1, 2, 3\nATT, 2, 4, 5, 6";
  const size_t start = log.rfind("ATT");
  for (size_t size = start; size <= log.size(); ++size) {
    const Samples roll = load(*open(log.substr(0, size)), "ATT.Roll");
    const size_t whole = start + std::string("ATT, 2, 4, 5, ").size();
    EXPECT_EQ(roll.y.size(), size < whole ? 1u : 2u) << log.substr(start, size - start);
  }
  EXPECT_TRUE(log_lines(" 2 ").empty());
}

TEST_F(ArduPilotTxt, LooksAgainWhenTheFileGrowsOrIsForgotten) {
  std::string log = std::string(head) + "ATT, 0, 1, 2, 3\n";
  auto reader = open(log);
  const uint64_t before = mirn3::mem::memory_used;
  EXPECT_EQ(load(*reader, "ATT.Roll"), (Samples{{0}, {1}}));
  EXPECT_EQ(load(*reader, "ATT.Roll"), (Samples{{0}, {1}}));
  EXPECT_GT(mirn3::mem::memory_used, before);
  reader->forget();
  EXPECT_EQ(mirn3::mem::memory_used, before);
  log += "GPS, 1, 2, 3, 4\nATT, 1000000, 2, 3, 4\n";
  make("recording", log);
  EXPECT_EQ(load(*reader, "ATT.Roll"), (Samples{{0, 1}, {1, 2}}));
  make("recording", head);
  EXPECT_EQ(load(*reader, "ATT.Roll"), Samples{});
}

// More lines than a thread takes at a time, some of them short, among a line without end.
TEST_F(ArduPilotTxt, KeepsOrderOverManyLines) {
  std::string log = std::string(head) + std::string(9 << 20, 'z') + "\n";
  Samples expected;
  for (int i = 0; i < 200'000; ++i) {
    log += i % 3 == 0 ? "NOISE, 1, 2\n" : "";
    log += "ATT, " + std::to_string(i) + (i % 1000 == 7 ? "\n" : ", " + std::to_string(-i) + ", 0, 0\n");
    if (i % 1000 == 7) continue;
    expected.x.push_back(i * 0.000001);
    expected.y.push_back(-i);
  }
  EXPECT_TRUE(load(*open(log), "ATT.Roll") == expected);
}

// Against a look at every line with every word, for random texts over few letters and all piece sizes.
TEST(LineGroupsOf, AnyTextAreTheLinesThatBeginWithAWord) {
  std::mt19937 random(20);
  const auto some = [&](size_t most, const char* letters) {
    std::string text(random() % (most + 1), ' ');
    for (char& c : text) c = letters[random() % std::strlen(letters)];
    return text;
  };
  for (int round = 0; round < 300; ++round) {
    std::vector<std::string> words;
    for (int i = 0; i < 12; ++i) words.push_back("a" + some(4, "ab\xff"));
    std::sort(words.begin(), words.end());
    words.erase(std::unique(words.begin(), words.end()), words.end());
    const std::string text = some(300, "aab\xff\n");
    const LineGroups groups(text, words, "ab", 1 + random() % 40);
    for (size_t word = 0; word < words.size(); ++word) {
      std::vector<uint64_t> expected;
      for (size_t i = 0; i < text.size(); ++i) {
        const bool starts = i == 0 || text[i - 1] == '\n';
        if (starts && text.compare(i, words[word].size(), words[word]) == 0 && text.compare(i, 2, "ab") != 0)
          expected.push_back(i);
      }
      const auto got = groups.lines(word);
      EXPECT_EQ(std::vector<uint64_t>(got.begin(), got.end()), expected) << text << " | " << words[word];
    }
  }
}

}  // namespace
