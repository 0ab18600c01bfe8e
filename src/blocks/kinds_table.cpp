// Kinds that look a signal up in a table.
#include <cmath>

#include "blocks/kind.h"

namespace plexo {

namespace {

using enum Property;

constexpr std::string_view outside[] = {"clip", "extend"};

bool ascends(std::span<const double> numbers) {
  for (size_t i = 0; i < numbers.size(); ++i) {
    if (!std::isfinite(numbers[i]) || (i > 0 && !(numbers[i] > numbers[i - 1]))) return false;
  }
  return !numbers.empty();
}

bool all_finite(std::span<const double> numbers) {
  for (const double number : numbers) {
    if (!std::isfinite(number)) return false;
  }
  return true;
}

std::optional<Property> check_line(const Values& v) {
  if (!ascends(v.list(bp1))) return bp1;
  if (!all_finite(v.list(out))) return out;
  return std::nullopt;
}

std::optional<Property> check_grid(const Values& v) {
  if (!ascends(v.list(bp1))) return bp1;
  if (!ascends(v.list(bp2))) return bp2;
  for (const list_t& row : v.rows(out)) {
    if (!all_finite(row.numbers)) return out;
  }
  return std::nullopt;
}

void lower_line(const Values& v, Lowered& to) {
  to.become(v.choice(type) == 0 ? Op::lookup_clip : Op::lookup_extend);
  to.tables = {v.list(bp1), v.list(out)};
}

void lower_grid(const Values& v, Lowered& to) {
  to.become(v.choice(type) == 0 ? Op::lookup2_clip : Op::lookup2_extend);
  for (const list_t& row : v.rows(out)) {
    to.own_table.insert(to.own_table.end(), row.numbers.begin(), row.numbers.end());
  }
  to.tables = {v.list(bp1), v.list(bp2), to.own_table};
}

}  // namespace

Kinds table_kinds() {
  return {
      {.type = "lut1d",
       .family = "Tables",
       .ports = {1, 1},
       .texts = {{.property = type, .choices = outside}},
       .lists = {{bp1, Shape::list}, {out, Shape::list}},
       .check = check_line,
       .lower = lower_line,
       .rule =
           "segment i with bp1[i] ≤ u < bp1[i+1], else the first or last; y = o[i] + (o[i+1] − o[i])·((u − "
           "b[i])/(b[i+1] − b[i])); \"clip\": outside the end value; one point: its value; NaN → NaN"},
      {.type = "lut2d",
       .family = "Tables",
       .ports = {2, 1},
       .texts = {{.property = type, .choices = outside}},
       .lists = {{bp1, Shape::list}, {bp2, Shape::list}, {out, Shape::rows}},
       .check = check_grid,
       .lower = lower_grid,
       .rule =
           "rows by u1 at bp1, columns by u2 at bp2: a and b along the two rows of the u1 segment by the "
           "rule "
           "of `lut1d`; then y = a + (b − a)·((u1 − r)/(r' − r)), with one row a; \"clip\": u1 outside gives "
           "the end row's value"},
  };
}

}  // namespace plexo
