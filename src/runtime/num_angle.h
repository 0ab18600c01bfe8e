// Differences of angles.
#pragma once

#include <cmath>

namespace mirn3::num {

// The smaller of the two arcs between two directions, in the unit of `turn` (a whole turn): in
// [0, turn / 2]. NaN when an angle is NaN or infinite. The remainder is exact, so far angles
// (1e9 degrees) lose nothing.
inline double arc_dist(double a, double b, double turn) {
  const double difference = std::fabs(a - b);
  return difference <= 0.5 * turn ? difference : std::fabs(std::remainder(difference, turn));
}

inline double deg_dist(double a, double b) { return arc_dist(a, b, 360.0); }
inline double rad_dist(double a, double b) { return arc_dist(a, b, 6.283185307179586); }

}  // namespace mirn3::num
