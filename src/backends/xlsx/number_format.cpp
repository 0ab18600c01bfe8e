// Tells from a cell's number format whether the number is a date, a time or just a number.
#include "backends/xlsx/number_format.h"

#include <cmath>
#include <cstddef>

#include "runtime/str.h"

namespace mirn2::rd::xlsx {

namespace {

constexpr double seconds_per_day = 86'400;
constexpr double epoch_1900 = 25'569;  // 1970-01-01 in days since 1899-12-30
constexpr double epoch_1904 = 24'107;  // in days since 1904-01-01

// [h], [mm], [ss] count on; [Red], [$-409], [>5] do not.
bool is_elapsed(std::string_view bracket) {
  if (bracket.empty()) return false;
  const char unit = mirn3::str::lower(bracket.front());
  if (unit != 'h' && unit != 'm' && unit != 's') return false;
  for (const char c : bracket) {
    if (mirn3::str::lower(c) != unit) return false;
  }
  return true;
}

}  // namespace

Shown shown_by_code(std::string_view code) {
  bool day = false, month_or_minute = false, time = false;
  for (size_t i = 0; i < code.size(); ++i) {
    const char c = mirn3::str::lower(code[i]);
    if (c == ';') break;  // the part for positive numbers decides
    if (c == '\\' || c == '_' || c == '*') {
      ++i;  // the next character is shown, or left room for
    } else if (c == '"') {
      i = code.find('"', i + 1);
      if (i == code.npos) break;
    } else if (c == '[') {
      const size_t close = code.find(']', i);
      if (close == code.npos) break;
      if (is_elapsed(code.substr(i + 1, close - i - 1))) return Shown::elapsed;
      i = close;
    } else if (c == 'g' && mirn3::str::lower(code.substr(i).size() >= 7 ? code[i + 1] : ' ') == 'e' && !day &&
               !time) {
      i += 6;  // General
    } else if (c == 'e' && i + 1 < code.size() && (code[i + 1] == '+' || code[i + 1] == '-')) {
      ++i;  // an exponent
    } else if (c == 'y' || c == 'd' || c == 'e') {
      day = true;
    } else if (c == 'h' || c == 's') {
      time = true;
    } else if (c == 'm') {
      month_or_minute = true;
    }
  }
  if (day || (month_or_minute && !time)) return Shown::date;
  return time ? Shown::clock : Shown::number;
}

Shown shown_by_number(uint32_t number) {
  // 27 to 36 and 50 to 58 are dates in East Asian editions.
  if ((number >= 14 && number <= 17) || number == 22 || (number >= 27 && number <= 31) || number == 36 ||
      (number >= 50 && number <= 54) || number == 57 || number == 58) {
    return Shown::date;
  }
  if ((number >= 18 && number <= 21) || (number >= 32 && number <= 35) || number == 45 || number == 47 ||
      number == 55 || number == 56) {
    return Shown::clock;
  }
  return number == 46 ? Shown::elapsed : Shown::number;
}

double seconds_of(double days, Shown shown, bool counts_from_1904) {
  if (shown == Shown::number) return days;
  if (shown == Shown::date || (shown == Shown::clock && days >= 1)) {
    // Days from 1900 count a 29th of February that this year did not have.
    if (!counts_from_1904 && days < 60) days += 1;
    days -= counts_from_1904 ? epoch_1904 : epoch_1900;
  }
  return std::nearbyint(days * seconds_per_day * 1e6) / 1e6;
}

}  // namespace mirn2::rd::xlsx
