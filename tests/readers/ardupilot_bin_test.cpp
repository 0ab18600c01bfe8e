// ArduPilot binary logs: what is offered, what is loaded, and what damage leaves of it.
#include "readers/ardupilot_bin.h"

#include <gmock/gmock.h>

#include <array>
#include <bit>
#include <cstring>
#include <map>
#include <random>

#include "loading.h"
#include "runtime/exc.h"
#include "runtime/mem.h"
#include "runtime/tag.h"

namespace {

namespace fs = std::filesystem;
using mirn2::rd::ReaderArduPilotBIN;
using testing::ElementsAre;

constexpr int F = 0x80, A = 10, B = 11;  // message types
constexpr size_t declaration = 89;       // bytes

// A text in a field of fixed width.
std::string text(std::string content, size_t width) {
  content.resize(width);
  return content;
}

// Writes a log record by record.
class Log {
 public:
  Log& declare(int type, int length, const char* name, const std::string& format, const std::string& labels) {
    return record(F, uint8_t(type), uint8_t(length), text(name, 4), text(format, 16), text(labels, 64));
  }
  template <typename... Fields>
  Log& record(int type, Fields... fields) {
    bytes += "\xA3\x95";
    bytes += static_cast<char>(type);
    (append(fields), ...);
    return *this;
  }
  Log& attitude(int i) { return record(A, uint64_t(i) * 1'000'000, int16_t(i), int16_t(-i)); }

  std::string bytes;

 private:
  void append(const std::string& field) { bytes += field; }
  template <typename T>
  requires std::is_arithmetic_v<T>
  void append(T value) {
    char field[sizeof value];
    std::memcpy(field, &value, sizeof value);
    bytes.append(field, sizeof value);
  }
};

// Two message types, of which B is `A`'s neighbour in the records; five records.
Log small_log() {
  Log log;
  log.declare(F, declaration, "FMT", "BBnNZ", "Type,Length,Name,Format,Columns");
  log.declare(A, 15, "ATT", "Qhh", "TimeUS,Roll,Pitch").declare(B, 11, "BAR", "If", "TimeMS,Alt");
  return log.attitude(1).record(B, 1500, 2.5f).attitude(2).record(B, 2500, 3.5f).attitude(3);
}

class ArduPilotBin : public Reading<ReaderArduPilotBIN> {
 protected:
  Opened open(const Log& log) const { return Reading::open(log.bytes); }
};

TEST_F(ArduPilotBin, OffersFieldsOfMessagesThatHaveATime) {
  const std::string full_label(57, 'A');
  const struct {
    const char *name, *format;
    std::string labels;
    std::vector<std::string> offered;
  } cases[] = {
      {"ATT", "Qcc", "TimeUS,Roll,Pitch", {"ATT.Roll", "ATT.Pitch"}},
      {"BARO", "If", "TimeStamp,Alt", {"BARO.Alt"}},
      {"SEQ", "HIB", "Seq,GPSTime,Time2", {"SEQ.Seq", "SEQ.Time2"}},
      {"STAT", "BB", "timeus,Stage", {}},
      {"POS", "QLLf?aB", "TimeUS,Lat,Lng,Alt,X,Raw,Y", {"POS.Alt", "POS.Y"}},
      {"MOTB", "Qf", "TimeUS,A,B,C", {"MOTB.A"}},
      {"LINE", "QBB", "TimeUS,A\r\nB,C", {"LINE.A"}},
      {"CRLF", "QB", "A,B\nTimeUS", {}},
      {"DUP", "QBB", "TimeUS,A,A", {"DUP.A", "DUP.A"}},
      {"FULL", "QBBBBBBBBBBBBBBB", "TimeUS," + full_label, {"FULL." + full_label}},  // to the last byte
  };
  for (const auto& c : cases) {
    auto reader = open(Log().declare(A, 60, c.name, c.format, c.labels));
    EXPECT_EQ(leaves(*reader), c.offered) << c.labels;
    EXPECT_EQ(reader->locations.contains(c.name), !reader->variables().empty());
  }
  EXPECT_THAT(
      leaves(*open(Log().declare(200, 12, "LATE", "QB", "Time,A").declare(7, 12, "SOON", "BQ", "A,Time"))),
      ElementsAre("SOON.A", "LATE.A"))
      << "by message type";
}

TEST_F(ArduPilotBin, OnlyTheHeadDecidesWhatIsOffered) {
  EXPECT_TRUE(open(Log().record(A, text("no declaration", 86)))->variables().empty());
  EXPECT_TRUE(open(Log())->variables().empty());
  // The sync bytes of the head are not looked at while scanning; its cut last piece is no declaration.
  Log log = small_log();
  log.bytes[declaration] = 0;
  EXPECT_EQ(open(log)->variables().size(), 2u);
  log.bytes.resize(3 * declaration - 1);
  EXPECT_THAT(leaves(*open(log)), ElementsAre("ATT.Roll", "ATT.Pitch"));
}

TEST_F(ArduPilotBin, ReadsEveryLetter) {
  const auto check = [&](char letter, const std::string& bytes, double value) {
    // Behind an odd number of bytes, and with widths that count although the field is not offered.
    const int length = static_cast<int>(3 + 1 + 4 + 64 + 4 + bytes.size() + 1);
    Log log;
    log.declare(A, length, "X", std::string("BLa?I") + letter + "B", "a,b,c,d,Time,value,end");
    for (uint32_t time : {7u, 8u}) {
      log.record(A, uint8_t{1}, int32_t{2}, text("", 64), time, bytes, uint8_t(time));
    }
    auto reader = open(log);
    EXPECT_EQ(load(*reader, "X.value"), (Samples{{7, 8}, {value, value}})) << letter;
    EXPECT_EQ(load(*reader, "X.end"), (Samples{{7, 8}, {7, 8}})) << letter;
  };
  const auto minus_two = [&](const char* letters, int width, double value) {
    for (; *letters != 0; ++letters) check(*letters, "\xFE" + std::string(width - 1, '\xFF'), value);
  };
  minus_two("b", 1, -2);
  minus_two("BM", 1, 254);
  minus_two("h", 2, -2);
  minus_two("H", 2, 65534);
  minus_two("i", 4, -2);
  minus_two("I", 4, 4294967294);
  minus_two("c", 2, -2 * 0.01);
  minus_two("C", 2, 65534 * 0.01);
  minus_two("e", 4, -2 * 0.01);
  minus_two("E", 4, 4294967294 * 0.01);
  minus_two("q", 8, -2);
  minus_two("Q", 8, 0x1p64);
  check('c', "\x39\x30", 123.45);
  check('f', std::string("\0\0\x20\xC0", 4), -2.5);
  check('d', std::string("\0\0\0\0\0\0\x04\xC0", 8), -2.5);
}

TEST_F(ArduPilotBin, ScalesTimeByItsExactLabel) {
  const std::map<std::string, double> units = {
      {"TimeUS", 0.000001}, {"TimeMS", 0.001}, {"TimeStamp", 1}, {"GPSTimeUS", 1}, {"Time", 1}};
  for (const auto& [label, unit] : units) {
    const Log log = Log().declare(A, 8, "X", "BI", "v," + label).record(A, uint8_t{9}, 2'000'000);
    EXPECT_EQ(load(*open(log), "X.v"), (Samples{{2'000'000 * unit}, {9}})) << label;
  }
}

TEST_F(ArduPilotBin, NumbersTextsByTheirTag) {
  const std::string wide = "sixteen letters!";
  Log log;
  log.declare(A, 3 + 4 + 4 + 16 + 64, "MSG", "InNZ", "Time,n,N,Z");
  log.record(A, 1, text("abcd", 4), wide, text("first", 64));
  log.record(A, 2, text("ab", 4), text("Mode", 16), text("second", 64));
  log.record(A, 3, text("abcd", 4), wide, text(std::string("first\0junk", 10), 64));
  auto reader = open(log);
  const std::tuple<const char*, std::string, std::string> expected[] = {
      {"MSG.n", "abcd", "ab"}, {"MSG.N", wide, "Mode"}, {"MSG.Z", "first", "second"}};
  for (const auto& [name, outer, inner] : expected) {
    const Samples samples = load(*reader, name, name);
    ASSERT_EQ(samples.y.size(), 3u);
    EXPECT_EQ(mirn3::tag::get(name, samples.y[0]), outer);
    EXPECT_EQ(mirn3::tag::get(name, samples.y[1]), inner);
    EXPECT_EQ(samples.y[0], samples.y[2]);
    EXPECT_EQ(load(*open(log), name, name), samples);
  }
}

// The group's name goes by its first field, which a record may hold without holding the time.
TEST_F(ArduPilotBin, NamesOfGroupsAndDoubledNamesLoadOneFieldUnknownOnesNone) {
  Log log = small_log();
  log.bytes.resize(3 * declaration);
  log.declare(12, 6, "DUP", "BBB", "Time,v,v").declare(13, 9, "SEQ", "BBI", "Seq,v,TimeMS");
  log.record(B, 1500, 2.5f).record(12, text("\1\2\3", 3)).record(13, text("\1\2", 2), 1000);
  log.declare(13, 5, "SEQ", "BB", "Seq,v").record(13, text("\3\4", 2));
  auto reader = open(log);
  const std::pair<const char*, Samples> expected[] = {{"BAR", {{1500 * 0.001}, {1500}}},
                                                      {"DUP.v", {{1}, {3}}},
                                                      {"SEQ", {{1, 3}, {1, 3}}},
                                                      {"SEQ.Seq", {{1}, {1}}},
                                                      {"SEQ.v", {{1}, {2}}}};
  for (int round = 0; round < 2; ++round) {
    for (const auto& [name, samples] : expected) EXPECT_EQ(load(*reader, name), samples) << name;
  }
  mirn2::rd::rto_t request{.tag_key = "", .name = "ATT.Yaw", .x = {}, .y = {}};
  EXPECT_THROW(reader->load(request), mirn3::exc::error_t);
  request.tolerate_unknown = true;
  reader->load(request);
  EXPECT_TRUE(request.x.empty() && request.y.empty());
  EXPECT_THROW(open_file(folder / "missing.bin"), mirn3::exc::error_t);
}

TEST_F(ArduPilotBin, DeclarationsAfterTheHeadGiveLengthsOnly) {
  Log log = small_log();
  log.declare(99, 7, "NEW", "I", "TimeMS").record(99, 1).attitude(4);
  // A known type, declared again: longer, too short for Pitch, too short for the time.
  log.declare(A, 16, "ATT", "QhhB", "TimeUS,R,P,Y").attitude(5).bytes += '\0';
  log.declare(A, 13, "ATT", "Qh", "TimeUS,Roll").record(A, uint64_t{6'000'000}, int16_t{6});
  log.declare(A, 4, "ATT", "B", "Roll").record(A, uint8_t{7});
  auto reader = open(log.declare(A, 15, "ATT", "Qhh", "TimeUS,Roll,Pitch").attitude(8));
  EXPECT_THAT(leaves(*reader), ElementsAre("ATT.Roll", "ATT.Pitch", "BAR.Alt"));
  const Samples roll = load(*reader, "ATT.Roll");
  EXPECT_THAT(roll.y, ElementsAre(1, 2, 3, 4, 5, 6, 8));
  EXPECT_EQ(load(*reader, "ATT.Pitch"), (Samples{roll.x, {-1, -2, -3, -4, -5, NAN, -8}}));
}

TEST_F(ArduPilotBin, DamageEndsTheLoadAndIsLoggedOnce) {
  const std::string next = Log().attitude(9).bytes;
  const auto lie = [&](int length) { return Log().declare(A, length, "ATT", "", "").bytes + next; };
  const std::pair<const char*, std::string> cases[] = {
      {"first sync byte", "\xA2\x95\x0A" + next},
      {"second sync byte", "\xA3\x94\x0A" + next},
      {"undeclared type", "\xA3\x95\x63" + next},
      {"length 2", lie(2)},
      {"length 0", lie(0)},
      {"a length past the end", lie(255)},
      {"header cut off", "\xA3\x95"},
      {"record cut off", next.substr(0, 14)},
  };
  load(*open(small_log()), "ATT.Roll");
  EXPECT_TRUE(log_lines().empty());
  size_t entries = 0;
  for (const auto& [why, bytes] : cases) {
    auto reader = Reading::open(small_log().bytes + bytes);
    for (int repeat = 0; repeat < 2; ++repeat) {
      EXPECT_THAT(load(*reader, "ATT.Pitch").y, ElementsAre(-1, -2, -3)) << why;
      EXPECT_THAT(load(*reader, "BAR.Alt").y, ElementsAre(2.5, 3.5)) << why;
      reader->forget();
    }
    ASSERT_EQ(log_lines().size(), ++entries) << why;
  }
  EXPECT_THAT(
      log_lines(),
      testing::Each(testing::ContainsRegex("2 Damaged flight log .*byte [0-9]+ of [0-9]+.*% of the file")));
}

TEST_F(ArduPilotBin, CutAnywhereOrAnyByteFlippedKeepsEveryRecordBefore) {
  const Log whole = small_log();
  const size_t head = 3 * declaration, a = 15, b = 11;
  const size_t ends[] = {head + a, head + a + b + a, head + a + b + a + b + a};
  const Samples all = load(*open(whole), "ATT.Pitch");
  for (size_t at = 0; at < whole.bytes.size(); ++at) {
    for (const int flipped : {0, 0x01, 0x80, 0xFF}) {  // 0: cut here
      Log log = whole;
      log.bytes[at] = static_cast<char>(log.bytes[at] ^ flipped);
      if (flipped == 0) log.bytes.resize(at);
      auto reader = open(log);
      for (const auto& name : leaves(*reader))
        EXPECT_LE(load(*reader, name).x.size(), whole.bytes.size() / 3) << at;
      if (at < head) continue;
      const auto complete = std::ranges::count_if(ends, [&](size_t end) { return end <= at; });
      const Samples samples = load(*reader, "ATT.Pitch");
      ASSERT_GE(std::ssize(samples.y), complete) << at;
      EXPECT_TRUE(flipped != 0 || std::ssize(samples.y) == complete) << at;
      EXPECT_TRUE(std::equal(all.x.begin(), all.x.begin() + complete, samples.x.begin())) << at;
      EXPECT_TRUE(std::equal(all.y.begin(), all.y.begin() + complete, samples.y.begin())) << at;
    }
  }
}

// Many records of several types, so that blocks, threads and decoding ahead all have work.
Log long_log(int records) {
  Log log;
  log.declare(A, 3 + 8 + 2 + 4 + 8 + 4, "IMU", "Qcfde", "TimeUS,a,b,c,d");
  log.declare(B, 3 + 4 + 16 + 1, "MODE", "INB", "TimeMS,Name,Id");
  log.declare(12, 3 + 8 + 4, "ALT", "Qf", "TimeUS,Alt");
  std::mt19937 random(20261121);
  for (int i = 0; i < records; ++i) {
    log.record(A, uint64_t(i) * 2500, int16_t(random()), float(random()), double(random()),
               int32_t(random()));
    if (i % 100 == 0) log.record(B, uint32_t(i), text(i % 200 ? "LOITER" : "AUTO", 16), uint8_t(i));
    if (i % 3 == 0) log.record(12, uint64_t(i) * 2500 + 1, float(i));
  }
  return log;
}

TEST_F(ArduPilotBin, AnyOrderOfLoadsGivesWhatAFreshReaderGives) {
  auto reader = open(long_log(60'000));
  std::vector<std::string> names = leaves(*reader);
  std::map<std::string, Samples> fresh;
  for (const auto& name : names) fresh[name] = load(*open_file(reader->path()), name);
  EXPECT_EQ(fresh["IMU.d"].x.size(), 60'000u);

  std::mt19937 random(7);
  for (int round = 0; round < 20; ++round) {
    mirn3::mem::memory_bank = uint64_t{1} << (round % 4 == 3 ? 20 : 32);  // decodes ahead, or not
    for (const auto& name : names) {
      EXPECT_TRUE(load(*reader, name) == fresh[name]) << name << " in round " << round;
      if (random() % 8 == 0) reader->forget();
    }
    if (round > 1) std::shuffle(names.begin(), names.end(), random);
  }
  mirn3::mem::configure();
}

TEST_F(ArduPilotBin, ForgettingMeanwhileIsSafeAndGivesTheMemoryBack) {
  const uint64_t before = mirn3::mem::memory_used;
  auto reader = open(long_log(20'000));
  const Samples expected = load(*reader, "IMU.c");
  EXPECT_GT(mirn3::mem::memory_used, before);
  std::atomic<bool> done = false;
  run_threads(2, [&](size_t thread) {
    while (thread == 1 && !done) reader->forget();
    for (int i = 0; thread == 0 && i < 50; ++i) EXPECT_TRUE(load(*reader, "IMU.c") == expected);
    done = true;
  });
  reader->forget();
  EXPECT_EQ(mirn3::mem::memory_used, before);
}

TEST_F(ArduPilotBin, NoticesThatTheFileChanged) {
  Log log = small_log();
  auto reader = open(log);
  EXPECT_EQ(load(*reader, "ATT.Roll").y.size(), 3u);
  open(log.attitude(4));
  EXPECT_THAT(load(*reader, "ATT.Roll").y, ElementsAre(1, 2, 3, 4));
  fs::remove(reader->path());
  EXPECT_THROW(load(*reader, "ATT.Roll"), mirn3::exc::error_t);
}

TEST(ArduPilotWalk, FindsTheSameRecordsWhateverTheReachOfAnOffset) {
  namespace ap = mirn2::rd::ardupilot;
  const Log log = long_log(500);
  const std::span bytes{reinterpret_cast<const unsigned char*>(log.bytes.data()), log.bytes.size()};
  ap::Lengths lengths;
  lengths.fill(-1);
  const auto positions = [&](uint32_t reach) {
    const ap::Walk walk = ap::walk(bytes, lengths, reach);
    EXPECT_EQ(walk.why, ap::End::complete);
    std::vector<uint64_t> found;
    for (const auto& [offsets, runs] : walk.types) {
      for (size_t i = 0, run = 0; i < offsets.size(); ++i) {
        while (run + 1 < runs.size() && runs[run + 1].first <= i) ++run;
        EXPECT_LE(offsets[i], reach);
        found.push_back(runs.at(run).base + offsets[i]);
      }
    }
    return found;
  };
  const auto all = positions(UINT32_MAX);
  EXPECT_EQ(all.size(), 3u + 500 + 5 + 167);
  for (const uint32_t reach : {0u, 100u, 1000u}) EXPECT_EQ(positions(reach), all) << reach;
}

uint32_t crc32(uint32_t crc, const std::vector<double>& values) {
  crc = ~crc;
  for (const double value : values) {
    for (const unsigned char byte : std::bit_cast<std::array<unsigned char, 8>>(value)) {
      crc ^= byte;
      for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320u : 0);
    }
  }
  return ~crc;
}

// Recorded flights, compared with an independent parser's results.
TEST_F(ArduPilotBin, RecordedFlightsComeOutWhole) {
  const struct {
    const char* name;
    size_t groups, variables, texts, samples;
    uint32_t checksum;  // CRC-32 over x then y of every variable without text, in order
    const char* last_parameter;
  } flights[] = {{"copter.bin", 135, 1017, 5, 230069, 0x92a8d3e7, "STAT_RUNTIME"},
                 {"truncated.bin", 129, 998, 2, 8680, 0x4c8ea8f3, "LAND_DS_AIL_SCL"}};
  for (const auto& flight : flights) {
    const fs::path file = fs::path(KVALO_RECORDED_DATA) / "flight" / flight.name;
    if (!fs::exists(file)) GTEST_SKIP() << "no recorded flight at " << file;
    auto reader = open_file(file);
    const auto names = leaves(*reader);
    EXPECT_EQ(reader->variables().size(), flight.groups);
    EXPECT_EQ(names.size(), flight.variables);
    size_t texts = 0, samples = 0;
    uint32_t checksum = 0;
    for (const auto& name : names) {
      const Samples got = load(*reader, name, file.string());
      samples += got.y.size();
      const auto& at = reader->locations.at(name);
      const bool is_text =
          std::string_view("nNZ").find(reader->formats.at(at.type).format[at.value_field]) < 3;
      texts += is_text;
      if (!is_text) checksum = crc32(crc32(checksum, got.x), got.y);
    }
    const Samples parameters = load(*reader, "PARM.Name", file.string());
    EXPECT_EQ(mirn3::tag::get(file.string(), parameters.y.back()), flight.last_parameter);
    EXPECT_EQ(texts, flight.texts);
    EXPECT_EQ(samples, flight.samples);
    EXPECT_EQ(checksum, flight.checksum);
  }
}

}  // namespace
