// The table of physical units and the maps between them.
#include "kernels/units.h"

#include "kernels/axis.h"

namespace mirn2::kernels {

namespace {

using enum Unit;

struct Name {
  std::string_view text;
  Unit unit;
};

constexpr Name names[] = {
    {"degree", degree},
    {"degrees", degree},
    {"deg", degree},
    {"radian", radian},
    {"radians", radian},
    {"rad", radian},
    {"foot", foot},
    {"feet", foot},
    {"ft", foot},
    {"inch", inch},
    {"inches", inch},
    {"in", inch},
    {"kilometer", kilometer},
    {"kilometers", kilometer},
    {"km", kilometer},
    {"meter", meter},
    {"meters", meter},
    {"m", meter},
    {"mile", mile},
    {"miles", mile},
    {"nauticalmile", nautical_mile},
    {"nauticalmiles", nautical_mile},
    {"nautical mile", nautical_mile},
    {"nautical miles", nautical_mile},
    {"nm", nautical_mile},
    {"kilogram", kilogram},
    {"kilograms", kilogram},
    {"kilo", kilogram},
    {"kg", kilogram},
    {"pound", pound},
    {"pounds", pound},
    {"lbs", pound},
    {"lb", pound},
    {"knot", knot},
    {"knots", knot},
    {"kn", knot},
    {"kt", knot},
    {"km/h", kilometer_per_hour},
    {"kph", kilometer_per_hour},
    {"kilometers per hour", kilometer_per_hour},
    {"mile/h", mile_per_hour},
    {"mph", mile_per_hour},
    {"miles per hour", mile_per_hour},
    {"m/s", meter_per_second},
    {"mps", meter_per_second},
    {"meters per second", meter_per_second},
    {"celsius", celsius},
    {"c", celsius},
    {"fahrenheit", fahrenheit},
    {"f", fahrenheit},
    {"kelvin", kelvin},
    {"k", kelvin},
};

struct Row {
  Unit from;
  Unit to;
  Conversion conversion;
};

// The constants are agreed ones; a few are not the exact inverse of their partner.
constexpr Row rows[] = {
    {degree, radian, {0.017453292519943295}},
    {radian, degree, {57.29577951308232}},
    {foot, inch, {12}},
    {foot, kilometer, {0.0003047999902464003}},
    {foot, meter, {0.3048}},
    {foot, mile, {0.0001893939393939394}},
    {foot, nautical_mile, {0.00016458196181698485}},
    {inch, foot, {0.08333333333333333}},
    {inch, kilometer, {2.539998628400741e-05}},
    {inch, meter, {0.0254}},
    {inch, mile, {1.5782828282828283e-05}},
    {inch, nautical_mile, {1.3714902807775312e-05}},
    {kilometer, foot, {3280.84}},
    {kilometer, inch, {39370.1}},
    {kilometer, meter, {1000}},
    {kilometer, mile, {0.621371192237334}},
    {kilometer, nautical_mile, {0.5399568034557235}},
    {meter, foot, {3.280839895013123}},
    {meter, inch, {39.37007874015748}},
    {meter, kilometer, {0.001}},
    {meter, mile, {0.0006213711922373339}},
    {meter, nautical_mile, {0.0005399568034557236}},
    {mile, foot, {5280}},
    {mile, inch, {63360}},
    {mile, kilometer, {1.609344}},
    {mile, meter, {1609.344}},
    {mile, nautical_mile, {0.868976}},
    {nautical_mile, foot, {6076.12}},
    {nautical_mile, inch, {72913.4}},
    {nautical_mile, kilometer, {1.852}},
    {nautical_mile, meter, {1852}},
    {nautical_mile, mile, {1.15078}},
    {kilogram, pound, {2.20462262185}},
    {pound, kilogram, {0.4535923699997481}},
    {knot, kilometer_per_hour, {1.852}},
    {knot, mile_per_hour, {1.15078}},
    {knot, meter_per_second, {0.5144456333854638}},
    {kilometer_per_hour, knot, {0.5399568034557235}},
    {kilometer_per_hour, mile_per_hour, {0.621371192237334}},
    {kilometer_per_hour, meter_per_second, {0.2777777777777778}},
    {mile_per_hour, knot, {0.868976}},
    {mile_per_hour, kilometer_per_hour, {1.609344}},
    {mile_per_hour, meter_per_second, {0.4470392589877243}},
    {meter_per_second, knot, {1.94384}},
    {meter_per_second, kilometer_per_hour, {3.6}},
    {meter_per_second, mile_per_hour, {2.23694}},
    {celsius, fahrenheit, {.factor = 1.8, .after = 32}},
    {celsius, kelvin, {.factor = 1, .after = 273.15}},
    {fahrenheit, celsius, {.factor = 0.5555555555555556, .before = -32}},
    {fahrenheit, kelvin, {.factor = 0.5555555555555556, .before = -32, .after = 273.15}},
    {kelvin, celsius, {.factor = 1, .after = -273.15}},
    {kelvin, fahrenheit, {.factor = 1.8, .before = -273.15, .after = 32}},
};

// Two angles, six lengths, two masses, four speeds, three temperatures: each into every other of its kind.
static_assert(sizeof rows / sizeof rows[0] == 2 * 1 + 6 * 5 + 2 * 1 + 4 * 3 + 3 * 2);

}  // namespace

Unit unit_named(std::string_view name) {
  for (const Name& known : names) {
    if (known.text == name) return known.unit;
  }
  return unknown;
}

std::optional<Conversion> conversion(Unit from, Unit to) {
  for (const Row& row : rows) {
    if (row.from == from && row.to == to) return row.conversion;
  }
  return std::nullopt;
}

void convert(std::span<const double> y, const Conversion& conversion, std::span<double> out) {
  each(out, [y, c = conversion](size_t i) { return (y[i] + c.before) * c.factor + c.after; });
}

}  // namespace mirn2::kernels
