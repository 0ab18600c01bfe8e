// Time stamps as text, the clock, and the timer that reports how long a piece of work took.
//
// All times are UTC; the machine's time zone and locale are never used.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kvalo/export.h"

namespace mirn3::utc {

// The forms of a time stamp. Values are stable: a reader keeps them as a 32-bit integer.
enum type_t : int32_t {
  seconds = 0,      // a plain number, taken as it is
  iso8601 = 1,      // 2026-11-21T04:22:01.5Z, with blank or T; zone, fraction and time may be absent
  day_month = 2,    // 21/11/2026 04:22:01.5, with / . or -
  month_day = 3,    // 11/21/2026 04:22:01.5, with / . or -
  time_of_day = 4,  // 04:22:01.5 (hours:minutes[:seconds]); see unroll_midnight
  epoch_ms = 5,     // Unix times in ms, us, ns; in s they are plain numbers
  epoch_us = 6,
  epoch_ns = 7,
};

// The form of a column, decided from its first value. docs/time-stamps.md says how.
MIRN3_API int32_t guess_type(std::string_view text);

// Seconds of one stamp: since 1970-01-01T00:00:00Z, since midnight for time_of_day, as written for
// plain numbers. NaN when the text is not of that form. Blanks and one pair of quotes around the text
// are skipped.
MIRN3_API double to_double(std::string_view text, int32_t type);

// Times of day that step back by more than half a day have passed midnight: adds a day from there on.
MIRN3_API void unroll_midnight(std::span<double> times);

// The clock: seconds since 1970, and nanoseconds for ordering what was used last.
MIRN3_API double now();
MIRN3_API uint64_t now_stamp();

// Now as 2026-11-21T04:22:01.123456Z.
MIRN3_API std::string now_as_str_02();

// Writes "load 'name' took 0.123 s" (label, what, time) to the log at severity 0 when it ends.
class MIRN3_API Timer {
 public:
  Timer(std::string_view label, std::string_view what);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

 private:
  std::string label_;
  std::string what_;
  uint64_t start_;
};

}  // namespace mirn3::utc
