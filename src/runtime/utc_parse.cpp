// Time stamps as text to seconds. Written by hand, as a stamp is read for every row of a file: no
// locale, no time zone, no allocation, and the result is the nearest double.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "runtime/utc.h"
#include "runtime/utc_calendar.h"
#include "runtime/utc_exact.h"

namespace mirn3::utc {

namespace {

constexpr double not_a_time = std::numeric_limits<double>::quiet_NaN();

// Hours in a time of day, and integers that are not cut off, have at most this many digits.
constexpr int most_hour_digits = 15;

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view without_blanks(std::string_view text) {
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
  return text;
}

// The stamp itself, without blanks around it and without a pair of quotes.
std::string_view bare(std::string_view text) {
  text = without_blanks(text);
  if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front()) {
    text = without_blanks(text.substr(1, text.size() - 2));
  }
  return text;
}

// Reads a text from left to right. Every step says whether it found what it looks for, and moves on
// only then.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

  bool done() const { return at_ == end_; }
  char peek() const { return at_ != end_ ? *at_ : '\0'; }

  bool take(char c) {
    if (peek() != c || done()) return false;
    ++at_;
    return true;
  }

  // A letter in either case, given in lower case.
  bool take_letter(char lower) {
    if ((peek() | 0x20) != lower) return false;
    ++at_;
    return true;
  }

  bool take_blanks() {
    const char* start = at_;
    while (at_ != end_ && is_blank(*at_)) ++at_;
    return at_ != start;
  }

  // An unsigned number of `least` to `most` digits, and no digit after it.
  template <typename Integer>
  bool take_number(int least, int most, Integer& value, int* digits = nullptr) {
    const char* p = at_;
    Integer number = 0;
    for (; p != end_ && is_digit(*p); ++p) {
      if (p - at_ == most) return false;
      number = static_cast<Integer>(number * 10 + (*p - '0'));
    }
    if (p - at_ < least) return false;
    if (digits != nullptr) *digits = static_cast<int>(p - at_);
    value = number;
    at_ = p;
    return true;
  }

  // The digits after a point. Those after the first `most_digits` count for nothing.
  struct Fraction {
    uint64_t value = 0;
    int digits = 0;
  };
  bool take_fraction(Fraction& fraction) {
    const char* start = at_;
    for (; at_ != end_ && is_digit(*at_); ++at_) {
      if (fraction.digits == most_digits) continue;
      fraction.value = fraction.value * 10 + static_cast<uint64_t>(*at_ - '0');
      ++fraction.digits;
    }
    return at_ != start;
  }

 private:
  const char* at_;
  const char* end_;
};

// A time on the clock.
struct Clock {
  int64_t hour = 0;
  int32_t minute = 0;
  int32_t second = 0;
  Scanner::Fraction fraction;

  int64_t whole_seconds() const { return hour * 3600 + minute * 60 + second; }
};

// What follows a point or a comma, if there is one.
bool read_fraction_of_second(Scanner& in, Clock& clock) {
  return !(in.take('.') || in.take(',')) || in.take_fraction(clock.fraction);
}

// hh:mm[:ss[.frac]]; second 60 is a leap second, which Unix time counts as the first of the next
// minute.
bool read_clock(Scanner& in, int most_digits_of_hour, Clock& clock) {
  if (!in.take_number(1, most_digits_of_hour, clock.hour) || !in.take(':')) return false;
  if (!in.take_number(1, 2, clock.minute) || clock.minute > 59) return false;
  if (!in.take(':')) return true;
  if (!in.take_number(1, 2, clock.second) || clock.second > 60) return false;
  return read_fraction_of_second(in, clock);
}

// AM or PM, if there; false when the hour does not go with it.
bool read_half_of_day(Scanner& in, Clock& clock) {
  Scanner ahead = in;
  ahead.take_blanks();
  const bool afternoon = ahead.take_letter('p');
  if (!afternoon && !ahead.take_letter('a')) return true;
  if (!ahead.take_letter('m') || clock.hour < 1 || clock.hour > 12) return false;
  clock.hour = clock.hour % 12 + (afternoon ? 12 : 0);
  in = ahead;
  return true;
}

// Whether a day has this time: up to 24:00:00, its end, and not beyond.
bool within_day(const Clock& clock) {
  if (clock.hour != 24) return clock.hour < 24;
  return clock.minute == 0 && clock.second == 0 && clock.fraction.value == 0;
}

bool valid(const Date& date) {
  return date.month >= 1 && date.month <= 12 && date.day >= 1 &&
         date.day <= days_in_month(date.year, date.month);
}

double join(const Date& date, const Clock& clock, int64_t zone_seconds) {
  const int64_t whole = days_from_date(date) * seconds_per_day + clock.whole_seconds() - zone_seconds;
  return nearest_signed(whole, clock.fraction.value, clock.fraction.digits);
}

// Z, +hh, +hhmm, +hh:mm or nothing.
bool read_zone(Scanner& in, int64_t& zone_seconds) {
  in.take_blanks();
  if (in.done() || in.take_letter('z')) return true;
  const bool west = in.take('-');
  if (!west && !in.take('+')) return false;
  int32_t hours = 0;
  int32_t minutes = 0;
  int digits = 0;
  if (!in.take_number(2, 4, hours, &digits) || digits == 3) return false;
  if (digits == 4) {
    minutes = hours % 100;
    hours /= 100;
  } else if (in.take(':') && !in.take_number(2, 2, minutes)) {
    return false;
  }
  if (hours > 23 || minutes > 59) return false;
  zone_seconds = (hours * 3600 + minutes * 60) * (west ? -1 : 1);
  return true;
}

// Two separators that are equal and one of `allowed`.
bool take_separator(Scanner& in, std::string_view allowed, char& separator) {
  separator = in.peek();
  return allowed.find(separator) != std::string_view::npos && in.take(separator);
}

// The usual layout, YYYY-MM-DDThh:mm:ss with every digit in its place and hours below 24, read without
// looking for anything. False, and nothing changed, where the text has another layout.
bool read_usual_iso8601(std::string_view text, Date& date, Clock& clock) {
  constexpr size_t length = 19;
  if (text.size() < length || (text.size() > length && is_digit(text[length]))) return false;
  const char* p = text.data();
  if (p[4] != '-' || p[7] != '-' || (p[10] != 'T' && p[10] != ' ') || p[13] != ':' || p[16] != ':')
    return false;
  bool digits = true;
  const auto two = [&](int at) {
    const unsigned tens = static_cast<unsigned char>(p[at]) - unsigned{'0'};
    const unsigned ones = static_cast<unsigned char>(p[at + 1]) - unsigned{'0'};
    digits &= (tens <= 9) & (ones <= 9);
    return static_cast<int32_t>(tens * 10 + ones);
  };
  const Date day{two(0) * int64_t{100} + two(2), two(5), two(8)};
  const Clock time{two(11), two(14), two(17), {}};
  if (!digits || time.hour > 23 || time.minute > 59 || time.second > 60) return false;
  date = day;
  clock = time;
  return true;
}

double read_iso8601(std::string_view text) {
  Date date{};
  Clock clock;
  Scanner in(text);
  bool timed = read_usual_iso8601(text, date, clock);
  if (timed) {
    in = Scanner(text.substr(19));
    if (!read_fraction_of_second(in, clock) || !valid(date)) return not_a_time;
  } else {
    char separator = 0;
    if (!in.take_number(4, 4, date.year) || !take_separator(in, "-/", separator)) return not_a_time;
    if (!in.take_number(1, 2, date.month) || !in.take(separator)) return not_a_time;
    if (!in.take_number(1, 2, date.day) || !valid(date)) return not_a_time;
    timed = !in.done();
    if (timed && !in.take_letter('t') && !in.take_blanks()) return not_a_time;
    if (timed && (!read_clock(in, 2, clock) || !within_day(clock))) return not_a_time;
  }
  int64_t zone_seconds = 0;
  if (timed && (!read_zone(in, zone_seconds) || !in.done())) return not_a_time;
  return join(date, clock, zone_seconds);
}

// The three numbers of 21/11/2026 or 11/21/26, in the order of writing.
struct ShortDate {
  int32_t first = 0;
  int32_t second = 0;
  int64_t year = 0;
  char separator = 0;
};

bool read_short_date(Scanner& in, ShortDate& date) {
  int year_digits = 0;
  if (!in.take_number(1, 2, date.first) || !take_separator(in, "/.-", date.separator)) return false;
  if (!in.take_number(1, 2, date.second) || !in.take(date.separator)) return false;
  if (!in.take_number(2, 4, date.year, &year_digits) || year_digits == 3) return false;
  if (year_digits == 2) date.year += date.year >= 70 ? 1900 : 2000;
  return true;
}

double read_short_date_and_time(Scanner in, bool day_is_first) {
  ShortDate written;
  if (!read_short_date(in, written)) return not_a_time;
  const Date date{written.year, day_is_first ? written.second : written.first,
                  day_is_first ? written.first : written.second};
  if (!valid(date)) return not_a_time;
  Clock clock;
  if (!in.done()) {
    bool apart = in.take(',');
    apart = in.take_blanks() || apart;
    if (!apart && !in.take_letter('t')) return not_a_time;
    if (!read_clock(in, 2, clock) || !read_half_of_day(in, clock) || !within_day(clock)) return not_a_time;
    if (!in.done()) return not_a_time;
  }
  return join(date, clock, 0);
}

double read_time_of_day(Scanner in) {
  const bool negative = in.take('-');
  if (!negative) in.take('+');
  Clock clock;
  if (!read_clock(in, most_hour_digits, clock) || !read_half_of_day(in, clock)) return not_a_time;
  if (!in.done()) return not_a_time;
  const double time =
      nearest(static_cast<uint64_t>(clock.whole_seconds()), clock.fraction.value, clock.fraction.digits);
  return negative ? -time : time;
}

double read_number(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return not_a_time;
  }
  double value = 0.0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc{} && stop == end ? value : not_a_time;
}

// A Unix time in units of 10^-digits seconds. Integers are divided exactly; anything else that is a number
// goes through a double.
double read_epoch(std::string_view text, int digits) {
  Scanner in(text);
  const bool negative = in.take('-');
  if (!negative) in.take('+');
  uint64_t number = 0;
  if (in.take_number(1, most_digits + 1, number) && in.done()) {
    const uint64_t scale = powers_of_ten[digits];
    const double time = nearest(number / scale, number % scale, digits);
    return negative ? -time : time;
  }
  return read_number(text) / static_cast<double>(powers_of_ten[digits]);
}

// The years 2000 to 2100 in seconds since 1970.
constexpr uint64_t first_epoch_second = static_cast<uint64_t>(days_from_date({2000, 1, 1}) * seconds_per_day);
constexpr uint64_t end_epoch_second = static_cast<uint64_t>(days_from_date({2101, 1, 1}) * seconds_per_day);

type_t guess_number(std::string_view text) {
  Scanner in(text);
  if (!in.take('-')) in.take('+');
  uint64_t number = 0;
  if (!in.take_number(1, most_digits + 1, number) || !in.done()) return seconds;
  const struct {
    type_t type;
    int digits;
  } units[] = {{epoch_ms, 3}, {epoch_us, 6}, {epoch_ns, 9}};
  for (const auto& unit : units) {
    const uint64_t scale = powers_of_ten[unit.digits];
    if (number >= first_epoch_second * scale && number < end_epoch_second * scale) return unit.type;
  }
  return seconds;
}

bool begins_like_iso8601(Scanner in) {
  int32_t number = 0;
  char separator = 0;
  return in.take_number(4, 4, number) && take_separator(in, "-/", separator) &&
         in.take_number(1, 2, number) && in.take(separator) && is_digit(in.peek());
}

bool begins_like_time_of_day(Scanner in) {
  if (!in.take('-')) in.take('+');
  int64_t number = 0;
  return in.take_number(1, most_hour_digits, number) && in.take(':') && is_digit(in.peek());
}

}  // namespace

int32_t guess_type(std::string_view text) {
  text = bare(text);
  if (!std::isnan(read_number(text))) return guess_number(text);
  // The beginning decides, so that a first stamp with a slip in it still gives the others their form.
  if (begins_like_iso8601(Scanner(text))) return iso8601;
  Scanner in(text);
  if (ShortDate date; read_short_date(in, date)) {
    if (date.first > 12) return day_month;
    if (date.second > 12) return month_day;
    return date.separator == '/' ? month_day : day_month;
  }
  if (begins_like_time_of_day(Scanner(text))) return time_of_day;
  return seconds;
}

double to_double(std::string_view text, int32_t type) {
  text = bare(text);
  switch (type) {
    case seconds:
      return read_number(text);
    case iso8601:
      return read_iso8601(text);
    case day_month:
      return read_short_date_and_time(Scanner(text), true);
    case month_day:
      return read_short_date_and_time(Scanner(text), false);
    case time_of_day:
      return read_time_of_day(Scanner(text));
    case epoch_ms:
      return read_epoch(text, 3);
    case epoch_us:
      return read_epoch(text, 6);
    case epoch_ns:
      return read_epoch(text, 9);
    default:
      return not_a_time;
  }
}

void unroll_midnight(std::span<double> times) {
  constexpr double half_day = seconds_per_day / 2.0;
  double previous = not_a_time;
  double days = 0.0;
  for (double& time : times) {
    if (std::isnan(time)) continue;
    const double read = time;
    if (read < previous - half_day) days += static_cast<double>(seconds_per_day);
    previous = read;
    time = read + days;
  }
}

}  // namespace mirn3::utc
