// The clock, the present time as text, and the timer.
#include <fmt/format.h>

#include <chrono>

#include "runtime/log.h"
#include "runtime/utc.h"
#include "runtime/utc_calendar.h"

namespace mirn3::utc {

namespace {

int64_t microseconds_now() {
  using std::chrono::floor, std::chrono::microseconds, std::chrono::system_clock;
  return floor<microseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

double now() { return static_cast<double>(microseconds_now()) / 1e6; }

uint64_t now_stamp() {
  using std::chrono::duration_cast, std::chrono::nanoseconds, std::chrono::steady_clock;
  return static_cast<uint64_t>(duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count());
}

std::string now_as_str_02() {
  constexpr int64_t microseconds_per_day = seconds_per_day * 1'000'000;
  const int64_t time = microseconds_now();
  int64_t days = time / microseconds_per_day;
  int64_t rest = time % microseconds_per_day;
  if (rest < 0) {
    rest += microseconds_per_day;
    --days;
  }
  const Date date = date_from_days(days);
  const int64_t second = rest / 1'000'000;
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:06}Z", date.year, date.month, date.day,
                     second / 3600, second / 60 % 60, second % 60, rest % 1'000'000);
}

Timer::Timer(std::string_view label, std::string_view what)
    : label_(label), what_(what), start_(now_stamp()) {}

Timer::~Timer() {
  if (!log::enabled(log::trace)) return;
  const double took = static_cast<double>(now_stamp() - start_) / 1e9;
  try {
    log::write(log::trace, fmt::format("{} '{}' took {:.3f} s", label_, what_, took));
  } catch (...) {
    // No memory for the text: what was timed matters more than how long it took.
  }
}

}  // namespace mirn3::utc
