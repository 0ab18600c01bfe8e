// Time stamps: accepted ones with their seconds (worked out in exact fractions by an independent calendar,
// written in hexadecimal where the last bit matters), and rejected ones.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "runtime/utc.h"

namespace {

using namespace mirn3::utc;

struct Stamp {
  const char* text;
  double expected;
  int32_t type;
};

TEST(UtcParse, AcceptedStampsAreGuessedAndReadToTheLastBit) {
  const Stamp stamps[] = {
      {"2026-11-21T04:22:01.5Z", 0x1.ac0471a600000p+30, iso8601},
      {"2026-11-21 04:22:01", 1795234921.0, iso8601},
      {"2026/11/21   04:22", 1795234920.0, iso8601},
      {"2026-11-21", 1795219200.0, iso8601},
      {R"( "2026-11-21t04:22:01z" )", 1795234921.0, iso8601},
      {"'2026-1-5 4:02:01'", 1767585721.0, iso8601},
      {"2026-11-21T04:22:01.123456", 0x1.ac0471a47e6b4p+30, iso8601},
      {"2026-11-21T04:22:01,123456Z", 0x1.ac0471a47e6b4p+30, iso8601},
      {"2026-11-21T04:22:01.123456789Z", 0x1.ac0471a47e6b7p+30, iso8601},
      {"2026-11-21T04:22:01.999999999Z", 0x1.ac0471a800000p+30, iso8601},
      // exactly between two doubles, and a little above that
      {"2026-11-21T04:22:01.00000011920928955078125Z", 0x1.ac0471a400000p+30, iso8601},
      {"2026-11-21T04:22:01.0000001192092896Z", 0x1.ac0471a400001p+30, iso8601},
      {"2026-11-21T04:22:01+02:00", 1795227721.0, iso8601},
      {"2026-11-21 04:22:01 -0330", 1795247521.0, iso8601},
      {"2026-11-21 04:22:01.25+01", 0x1.ac04396500000p+30, iso8601},
      {"2026-11-21T24:00:00Z", 1795305600.0, iso8601},
      {"2016-12-31T23:59:60.5Z", 0x1.61a11a0200000p+30, iso8601},
      {"2024-02-29", 1709164800.0, iso8601},
      {"2000-02-29", 951782400.0, iso8601},
      {"1969-12-31T23:59:59.25Z", -0.75, iso8601},
      {"1900-03-01T00:00:00.123456789Z", -0x1.06b96bffc0ca4p+31, iso8601},
      {"0001-01-01", -62135596800.0, iso8601},
      {"9999-12-31T23:59:59", 253402300799.0, iso8601},

      {"21/11/2026 04:22:01.5", 0x1.ac0471a600000p+30, day_month},
      {"21.11.26, 16:22", 1795278120.0, day_month},
      {"05-06-1999T00:00:00", 928540800.0, day_month},
      {"5.6.70", 13392000.0, day_month},
      {"31.12.69 12:00 am", 3155673600.0, day_month},
      {"11/21/2026, 4:22:01 PM", 1795278121.0, month_day},
      {"05/06/2026", 1778025600.0, month_day},
      {"1-31-2026 12:30pm", 1769862600.0, month_day},
      {"02/29/2024 24:00", 1709251200.0, month_day},

      {"04:22:01.5", 15721.5, time_of_day},
      {"0:00", 0.0, time_of_day},
      {"123:59:60", 446400.0, time_of_day},
      {"-00:00:05.25", -5.25, time_of_day},
      {"12:05 AM", 300.0, time_of_day},
      {"100000000000000:00:00.1", 3.6e17, time_of_day},

      {"1763698921123", 0x1.a47fa3a47df3bp+30, epoch_ms},
      {"1763698921123456", 0x1.a47fa3a47e6b4p+30, epoch_us},
      {"1763698921123456789", 0x1.a47fa3a47e6b7p+30, epoch_ns},
      {"-946684800001", -0x1.c36a1c00020c5p+29, epoch_ms},
      {"+1763698921123", 0x1.a47fa3a47df3bp+30, epoch_ms},
      {"4133980799999999999", 0x1.eccf150000000p+31, epoch_ns},

      {"1763698921", 1763698921.0, seconds},
      {"946684799999", 946684799999.0, seconds},      // a millisecond before 2000
      {"4133980800000", 4133980800000.0, seconds},    // 2101 begins
      {"1763698921123.0", 1763698921123.0, seconds},  // no integer
      {" \"+1.5e3\" ", 1500.0, seconds},
      {"-0.1", -0.1, seconds},
      {"inf", std::numeric_limits<double>::infinity(), seconds},
      {"20261121", 20261121.0, seconds},
  };
  for (const Stamp& stamp : stamps) {
    EXPECT_EQ(guess_type(stamp.text), stamp.type) << stamp.text;
    EXPECT_EQ(to_double(stamp.text, stamp.type), stamp.expected) << stamp.text;
  }
}

TEST(UtcParse, LaterRowsMayDifferFromTheFirst) {
  const Stamp stamps[] = {
      {"03/04/2026", 1775174400.0, day_month},
      {"03.04.2026", 1772582400.0, month_day},
      {"1763698921123.5", 1763698921.1235, epoch_ms},
      {"0", 0.0, epoch_ns},
      {"17", 1.7e-8, epoch_ns},
      {"1.5e9", 1.5, epoch_ns},
      {"12:00", 43200.0, time_of_day},
  };
  for (const Stamp& stamp : stamps) {
    EXPECT_EQ(to_double(stamp.text, stamp.type), stamp.expected) << stamp.text;
  }
}

TEST(UtcParse, RejectedStampsAreNaN) {
  const struct {
    int32_t type;
    std::vector<std::string> texts;
  } families[] = {
      {seconds,
       {"", "\"", "\"1", "+-1", "++1", "1 2", "1x", "0x1F", "1,5", "1e999", "text", std::string("1\0", 2)}},
      {iso8601,
       {"",
        "2026",
        "2026-11",
        "2026-11-",
        "2026-13-01",
        "2026-00-01",
        "2026-11-00",
        "2026-11-31",
        "2026-02-29",
        "1900-02-29",
        "2026/11-21",
        "2026-11-21T",
        "2026-11-21T04",
        "2026-11-21T04:60",
        "2026-11-21T25:00",
        "2026-11-21T24:00:01",
        "2026-11-21T24:00:00.001",
        "2026-11-21T04:22:61",
        "2026-11-21T04:22:01.",
        "2026-11-21T04:22:01+24:00",
        "2026-11-21T04:22:01+01:60",
        "2026-11-21T04:22:01+123",
        "2026-11-21T04:22:01+1",
        "2026-11-21T04:22:01Zx",
        "2026-11-21 04:22:01 PM",
        "12026-11-21",
        "126-11-21",
        "2026-111-21",
        "2026-11-21X04:22"}},
      {day_month,
       {"31/04/2026", "13/13/2026", "0/1/2026", "1/0/2026", "1/2", "1/2/026", "1/2/20266", "1/2-2026",
        "1/2/2026,", "1/2/2026 04", "1/2/2026 13:00 PM", "1/2/2026 0:30 AM", "1/2/2026 4:00 P",
        "1/2/2026 04:00Z"}},
      {month_day, {"04/31/2026", "13/01/2026", "02/29/2025"}},
      {time_of_day,
       {"", ":", "1", "1:", "1:60", "1:2:61", "1:2:3.", "1:2.5", "1:2:3:4", "1:222", "--1:00", "13:00 PM",
        "1000000000000000:00"}},
      {epoch_ms, {"", "-", "1 2", "1x", "text"}},
      {99, {"1"}},
  };
  for (const auto& family : families) {
    for (const std::string& text : family.texts) {
      EXPECT_TRUE(std::isnan(to_double(text, family.type))) << family.type << " " << text;
    }
  }
}

TEST(UtcParse, WhatLooksLikeNoTimeIsSeconds) {
  for (const char* text : {"", "ON", "2026.11.21", "1/2/3", "12:", "1-2", "nan", "20261121T042201", "0x1F"}) {
    EXPECT_EQ(guess_type(text), seconds) << text;
  }
  // A slip behind the beginning does not hide the form.
  EXPECT_EQ(guess_type("2026-11-21T99:99"), iso8601);
  EXPECT_EQ(guess_type("31.31.2026 noon"), day_month);
  EXPECT_EQ(guess_type("12:61:00"), time_of_day);
}

TEST(UtcParse, MidnightIsUnrolled) {
  const double gap = std::nan("");
  std::vector<double> times{86390, gap, 86399.5, 1, 0.5, gap, 86399, 2, 50000, 10000};
  unroll_midnight(times);
  const std::vector<double> expected{86390, gap,    86399.5, 86401,  86400.5,
                                     gap,   172799, 172802,  222800, 182800};
  for (size_t i = 0; i < times.size(); ++i) {
    EXPECT_TRUE(times[i] == expected[i] || (std::isnan(times[i]) && std::isnan(expected[i]))) << i;
  }
  unroll_midnight({});
}

TEST(UtcClock, NowIsAStampOfItsOwnForm) {
  const double before = now();
  const std::string text = now_as_str_02();
  const double after = now();
  EXPECT_EQ(text.size(), 27u);
  EXPECT_EQ(guess_type(text), iso8601);
  const double read = to_double(text, iso8601);
  EXPECT_LE(before, read);
  EXPECT_LE(read, after);
  const uint64_t stamp = now_stamp();
  EXPECT_LE(stamp, now_stamp());
}

}  // namespace
