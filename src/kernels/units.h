// Physical units and the maps between them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace mirn2::kernels {

enum class Unit : uint8_t {
  unknown,
  degree,
  radian,
  foot,
  inch,
  kilometer,
  meter,
  mile,
  nautical_mile,
  kilogram,
  pound,
  knot,
  kilometer_per_hour,
  mile_per_hour,
  meter_per_second,
  celsius,
  fahrenheit,
  kelvin,
};

// The unit that a lower-case name, whole and without blanks around it, stands for.
Unit unit_named(std::string_view name);

// x becomes (x + before) * factor + after.
struct Conversion {
  double factor;
  double before = 0.0;
  double after = 0.0;
};

// Nothing for units of different kinds, for a unit into itself and for unknown ones.
std::optional<Conversion> conversion(Unit from, Unit to);

// out[i] = (y[i] + before) * factor + after, each operation rounded; NaN stays NaN. Same sizes.
void convert(std::span<const double> y, const Conversion& conversion, std::span<double> out);

}  // namespace mirn2::kernels
