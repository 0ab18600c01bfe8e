// ArduPilot text logs: what is offered, which lines belong to a message, and what their words give.
#include "readers/ardupilot_txt.h"

#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "readers/line_groups.h"
#include "runtime/exc.h"
#include "runtime/home.h"
#include "runtime/mem.h"

namespace {

using mirn2::rd::LineGroups;
using mirn2::rd::ReaderArduPilotTXT;
using mirn2::rd::rto_t;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* head =
    "FMT, 128, 89, FMT, BBnNZ, Type,Length,Name,Format,Columns\n"
    "FMT, 1, 15, ATT, QccC, TimeUS,Roll,Pitch,Yaw\n"
    "FMT, 2, 20, GPS, BIHf, Status,TimeMS,Week,Alt\n"
    "FMT, 3, 20, GPS2, BI, Status,TimeMS\n";

struct Samples {
  std::vector<double> x, y;
  bool operator==(const Samples&) const = default;
};

class ArduPilotTxt : public Home {
 protected:
  std::unique_ptr<ReaderArduPilotTXT> open(const std::string& log) const {
    auto reader = std::make_unique<ReaderArduPilotTXT>(make("flight.log", log));
    reader->scan();
    return reader;
  }
  static Samples load(ReaderArduPilotTXT& reader, const std::string& name) {
    rto_t request{.tag_key = "", .name = name, .x = {}, .y = {}};
    reader.load(request);
    Samples samples{{request.x.begin(), request.x.end()}, {request.y.begin(), request.y.end()}};
    // The caller's to write, unless they say otherwise.
    if (!request.x.is_common()) std::fill_n(request.x.data(), request.x.size(), -1);
    return samples;
  }
  Samples load(const std::string& log, const std::string& name) const { return load(*open(log), name); }

  static std::vector<std::string> leaves(const ReaderArduPilotTXT& reader) {
    std::vector<std::string> names;
    for (const auto& group : reader.variables()) {
      if (group.children.empty()) names.push_back(group.full_name);
      for (const auto& leaf : group.children) names.push_back(leaf.full_name);
    }
    return names;
  }
};

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
      // Declarations behind the head, broken ones, and none.
      {"FMT, 1, 9, A, QB, TimeUS,a\nA, 1, 2\nFMT, 1, 9, B, QB, TimeUS,b\n", {"A.a"}},
      {"FMT, 1, 9\nFMT, 1, 9, , QB, TimeUS,a\nnot FMT, 1\nFMT, 1, 9, B, QB, TimeUS,b", {"B.b"}},
      {"PARM, 1, A, 2\nFMT, 1, 9, A, QB, TimeUS,a\n", {}},
      {std::string("\0FMT, 1, 9, A, QB, TimeUS,a\n", 28), {}},
      {"FMT, 1, 9, \xB5, QB, TimeUS,\xB5\n", {"\u00B5.\u00B5"}},
      {"", {}}};
  for (const auto& [log, names] : cases) EXPECT_EQ(leaves(*open(log)), names) << log;
}

TEST_F(ArduPilotTxt, KeepsDeclarationsAndPlaces) {
  auto reader = open(head);
  EXPECT_EQ(reader->messages.at("ATT").format, "QccC,");
  EXPECT_EQ(reader->messages.size(), 4u);
  const auto& at = reader->locations.at("GPS.Alt");
  EXPECT_EQ(at.message, "GPS");
  EXPECT_EQ(at.time_field, 1u);
  EXPECT_EQ(at.value_field, 3u);
  EXPECT_FALSE(reader->locations.contains("ATT"));
}

TEST_F(ArduPilotTxt, ReadsTheLinesThatBeginWithTheName) {
  const std::string log =
      std::string(head) +
      "ATT, 1000000, 1.5, -2, 3e2\nGPS, 3, 500, 2000, 10.25\nGPS2, 4, 501, 7, 8\r\n"
      "FMT, 9, 9, ATT, x, y\n ATT, 5, 5, 5\natt, 5, 5, 5, 5\nATT\nATTX, 2500000, 9, 9, 9\n";
  EXPECT_EQ(load(log, "ATT.Yaw"), (Samples{{1.0, 2.5}, {300, 9}}));
  EXPECT_EQ(load(log, "GPS.Alt"), (Samples{{500 * 0.001, 501 * 0.001}, {10.25, 8}}));
  EXPECT_EQ(load(log, "GPS.Status"), (Samples{{500 * 0.001, 501 * 0.001}, {3, 4}}));
  EXPECT_EQ(load(log, "GPS2.Status"), (Samples{{501 * 0.001}, {4}}));
  EXPECT_EQ(log_lines(" 2 ").size(), 1u);  // the line that is "ATT" alone, for ATT.Yaw
  EXPECT_THAT(log_lines(" 2 ").back(), HasSubstr("1 of 3 lines end before"));
  // A message whose name begins that of the declarations does not get them.
  EXPECT_EQ(load("FMT, 1, 9, F, QB, Time,a\nF, 1, 2\nFMT, 1, 2, 3, 4, 5\n", "F.a"), (Samples{{1}, {2}}));
  EXPECT_THROW(load(log, "ATT"), mirn3::exc::error_t);
  EXPECT_THROW(load(log, "ATT.Rol"), mirn3::exc::error_t);
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
  const std::tuple<const char*, double, double> cases[] = {
      {"7, 1.5, 0", 7, 1.5},
      {"7, -0.25,0", 7, -0.25},
      {"x, y, 0", NAN, NAN},
      {"7, +1, 0", 7, NAN},
      {"7,  1, 0", 7, NAN},  // two blanks: an empty word between them
      {"7, ", 7, NAN},
      {"7, 0x10", 7, 0},
      {"7, 1e400", 7, NAN},
      {"7, -inf\r5", 7, -INFINITY},
      {"-7, 123456789.123456789", -7, 123456789.123456789},
      {"7, 12\0 99", 7, 12}};
  for (const auto& [words, x, y] : cases) {
    const Samples got = load("FMT, 1, 9, A, QBB, Time,a,b\nA, " + std::string(words) + "\n", "A.a");
    ASSERT_EQ(got.x.size(), 1u) << words;
    EXPECT_TRUE(got.x[0] == x || (std::isnan(x) && std::isnan(got.x[0]))) << words;
    EXPECT_TRUE(got.y[0] == y || (std::isnan(y) && std::isnan(got.y[0]))) << words;
  }
  for (const auto& [label, second] :
       {std::pair{"TimeUS", 2e6 * 0.000001}, {"TimeMS", 2e6 * 0.001}, {"GPSTimeUS", 2e6}, {"TimeUS2", 2e6}}) {
    const std::string log = std::string("FMT, 1, 9, A, BQ, v,") + label + "\nA, 9, 2000000\n";
    EXPECT_EQ(load(log, "A.v"), (Samples{{second}, {9}})) << label;
  }
}

TEST_F(ArduPilotTxt, LeavesOutALastLineThatIsStillBeingWritten) {
  const std::string log = std::string(head) + "ATT, 1, 1, 2, 3\nATT, 2, 4, 5, 6";
  const size_t start = log.rfind("ATT");
  for (size_t size = start; size <= log.size(); ++size) {
    const Samples roll = load(log.substr(0, size), "ATT.Roll");
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
  make("flight.log", log);
  EXPECT_EQ(load(*reader, "ATT.Roll"), (Samples{{0, 1}, {1, 2}}));
  make("flight.log", head);
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
  EXPECT_TRUE(load(log, "ATT.Roll") == expected);
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
