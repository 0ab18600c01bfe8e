// Time stamps: accepted ones with their seconds (worked out in exact fractions by an independent calendar,
// written in hexadecimal where the last bit matters), and rejected ones.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/utc.h"

namespace {

using namespace mirn3::utc;

using Family = std::pair<int32_t, const char*>;  // a form, and texts of it between bars

std::vector<std::string> split(const std::string& texts, char at) {
  std::vector<std::string> parts;
  std::istringstream in(texts);
  for (std::string part; std::getline(in, part, at);) parts.push_back(part);
  return parts;
}

TEST(UtcParse, AcceptedStampsAreGuessedAndReadToTheLastBit) {
  // Among them: exactly between two doubles and a little above that, leap seconds, the borders at which
  // whole numbers stop being Unix times.
  const Family guessed[] = {
      {iso8601,
       "2026-11-21T04:22:01.5Z=0x1.ac0471a6p+30|2026/11/21   04:22=1795234920|2026-11-21=1795219200"
       "| \"2026-11-21t04:22:01z\" =1795234921|'2026-1-5 4:02:01'=1767585721"
       "|2026-11-21T04:22:01.123456=0x1.ac0471a47e6b4p+30"
       "|2026-11-21T04:22:01,123456Z=0x1.ac0471a47e6b4p+30"
       "|2026-11-21T04:22:01.123456789Z=0x1.ac0471a47e6b7p+30"
       "|2026-11-21T04:22:01.999999999Z=0x1.ac0471a8p+30"
       "|2026-11-21T04:22:01.00000011920928955078125Z=0x1.ac0471a4p+30"
       "|2026-11-21T04:22:01.0000001192092896Z=0x1.ac0471a400001p+30"
       "|2026-11-21T04:22:01+02:00=1795227721|2026-11-21 04:22:01 -0330=1795247521"
       "|2026-11-21 04:22:01.25+01=0x1.ac043965p+30|2026-11-21T24:00:00Z=1795305600"
       "|2016-12-31T23:59:60.5Z=0x1.61a11a02p+30|2000-02-29=951782400|2024-02-29=1709164800"
       "|1969-12-31T23:59:59.25Z=-0.75|1900-03-01T00:00:00.123456789Z=-0x1.06b96bffc0ca4p+31"
       "|0001-01-01=-62135596800|9999-12-31T23:59:59=253402300799"},
      {day_month,
       "21/11/2026 04:22:01.5=0x1.ac0471a6p+30|21.11.26, 16:22=1795278120|05-06-1999T00:00:00=928540800"
       "|5.6.70=13392000|31.12.69 12:00 am=3155673600"},
      {month_day,
       "11/21/2026, 4:22:01 PM=1795278121|05/06/2026=1778025600|1-31-2026 12:30pm=1769862600"
       "|02/29/2024 24:00=1709251200"},
      {time_of_day,
       "04:22:01.5=15721.5|123:59:60=446400|-00:00:05.25=-5.25|12:05 AM=300"
       "|100000000000000:00:00.1=3.6e17"},
      {epoch_ms,
       "1763698921123=0x1.a47fa3a47df3bp+30|-946684800001=-0x1.c36a1c00020c5p+29"
       "|+1763698921123=0x1.a47fa3a47df3bp+30"},
      {epoch_us, "1763698921123456=0x1.a47fa3a47e6b4p+30"},
      {epoch_ns, "1763698921123456789=0x1.a47fa3a47e6b7p+30|4133980799999999999=0x1.eccf15p+31"},
      {seconds,
       "946684799999=946684799999|4133980800000=4133980800000|1763698921123.0=1763698921123"
       "| \"+1.5e3\" =1500|-0.1=-0.1|inf=inf"},
  };
  // Later rows of a column may differ from the first.
  const Family later[] = {
      {day_month, "03/04/2026=1775174400"},
      {month_day, "03.04.2026=1772582400"},
      {epoch_ms, "1763698921123.5=1763698921.1235"},
      {epoch_ns, "0=0|17=1.7e-8|1.5e9=1.5"},
      {time_of_day, "12:00=43200"},
  };
  const auto check = [](const Family& family, bool is_first) {
    for (const std::string& stamp : split(family.second, '|')) {
      const auto parts = split(stamp, '=');
      EXPECT_EQ(to_double(parts.at(0), family.first), std::strtod(parts.at(1).c_str(), nullptr)) << stamp;
      EXPECT_TRUE(!is_first || guess_type(parts[0]) == family.first) << stamp;
    }
  };
  for (const Family& family : guessed) check(family, true);
  for (const Family& family : later) check(family, false);
}

TEST(UtcParse, RejectedStampsAreNaN) {
  const Family families[] = {
      {seconds, "|\"|\"1|+-1|++1|1 2|1x|0x1F|1,5|1e999|text"},
      {iso8601,
       "|2026|2026-11|2026-11-|2026-13-01|2026-00-01|2026-11-00|2026-11-31|2026-02-29|1900-02-29|2026/11-21"
       "|2026-11-21T|2026-11-21T04|2026-11-21T04:60|2026-11-21T25:00|2026-11-21T24:00:01"
       "|2026-11-21T24:00:00.001|2026-11-21T04:22:61|2026-11-21T04:22:01.|2026-11-21T04:22:01+24:00"
       "|2026-11-21T04:22:01+01:60|2026-11-21T04:22:01+123|2026-11-21T04:22:01+1|2026-11-21T04:22:01Zx"
       "|2026-11-21 04:22:01 PM|12026-11-21|126-11-21|2026-111-21|2026-11-21X04:22"},
      {day_month,
       "31/04/2026|13/13/2026|0/1/2026|1/0/2026|1/2|1/2/026|1/2/20266|1/2-2026|1/2/2026,|1/2/2026 04"
       "|1/2/2026 13:00 PM|1/2/2026 0:30 AM|1/2/2026 4:00 P|1/2/2026 04:00Z"},
      {month_day, "04/31/2026|13/01/2026|02/29/2025"},
      {time_of_day, "|:|1|1:|1:60|1:2:61|1:2:3.|1:2.5|1:2:3:4|1:222|--1:00|13:00 PM|1000000000000000:00"},
      {epoch_ms, "|-|1 2|1x|text"},
      {99, "1"},
  };
  for (const auto& [type, texts] : families) {
    for (const std::string& text : split(texts, '|')) {
      EXPECT_TRUE(std::isnan(to_double(text, type))) << type << " " << text;
    }
  }
  EXPECT_TRUE(std::isnan(to_double(std::string_view("1\0", 2), seconds)));
}

TEST(UtcParse, WhatLooksLikeNoTimeIsSeconds) {
  for (const char* text : {"1763698921", "20261121", "", "ON", "2026.11.21", "1/2/3", "12:", "1-2", "nan",
                           "20261121T042201", "0x1F"}) {
    EXPECT_EQ(guess_type(text), seconds) << text;
  }
  // A slip after the beginning does not hide the form.
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
  const double read = to_double(text, iso8601);
  EXPECT_LE(before, read);
  EXPECT_LE(read, after);
}

}  // namespace
