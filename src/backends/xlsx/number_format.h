// What a cell's number format says about the number: a date, a time, or just a number.
#pragma once

#include <cstdint>
#include <string_view>

namespace mirn2::rd::xlsx {

enum class Shown : uint8_t {
  number,
  date,     // a day, with or without a time of day
  clock,    // a time of day without a day: h:mm:ss
  elapsed,  // hours, minutes or seconds that go on counting: [h]:mm:ss
};

// Of a format that the file spells out ("yyyy\-mm\-dd"), and of one of the numbers below 164 that it does
// not.
Shown shown_by_code(std::string_view code);
Shown shown_by_number(uint32_t number);

// Seconds of a number shown so: since 1970-01-01 UTC for dates, since midnight or since the start otherwise.
// To the microsecond, which is what the number of days resolves.
double seconds_of(double days, Shown shown, bool counts_from_1904);

}  // namespace mirn2::rd::xlsx
