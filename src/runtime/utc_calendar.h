// Days and dates of the Gregorian calendar, extended back before its introduction, as in ISO 8601.
#pragma once

#include <cstdint>

namespace mirn3::utc {

inline constexpr int64_t seconds_per_day = 86'400;

struct Date {
  int64_t year;
  int32_t month;  // 1 to 12
  int32_t day;    // 1 to 31
};

// Both count years from March, so that the leap day ends the year and the days before a month follow
// from the line (153 * month + 2) / 5. An era is 400 years, 146097 days; 719468 days lie between
// 0000-03-01 and 1970-01-01.
constexpr int64_t days_from_date(Date date) {
  const int64_t year = date.year - (date.month <= 2);
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t year_of_era = year - era * 400;
  const int64_t day_of_year = (153 * (date.month + (date.month > 2 ? -3 : 9)) + 2) / 5 + date.day - 1;
  const int64_t day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146'097 + day_of_era - 719'468;
}

constexpr Date date_from_days(int64_t days) {
  days += 719'468;
  const int64_t era = (days >= 0 ? days : days - 146'096) / 146'097;
  const int64_t day_of_era = days - era * 146'097;
  const int64_t year_of_era =
      (day_of_era - day_of_era / 1'460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
  const int64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const int64_t month = (5 * day_of_year + 2) / 153;
  const auto day = static_cast<int32_t>(day_of_year - (153 * month + 2) / 5 + 1);
  const auto month_from_january = static_cast<int32_t>(month < 10 ? month + 3 : month - 9);
  return {year_of_era + era * 400 + (month_from_january <= 2), month_from_january, day};
}

constexpr bool is_leap_year(int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr int32_t days_in_month(int64_t year, int32_t month) {
  constexpr int8_t days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return days[month - 1] + (month == 2 && is_leap_year(year));
}

static_assert(days_from_date({1970, 1, 1}) == 0 && days_from_date({2000, 2, 29}) == 11'016);
static_assert(date_from_days(11'016).day == 29 && date_from_days(-1).year == 1969);

}  // namespace mirn3::utc
