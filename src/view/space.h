// What a three-dimensional chart shows of long lines and large surfaces: extremes stay, numbers shrink.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace kvalo_view {

constexpr size_t most_vertices = 20'000;
constexpr size_t most_mesh_side = 500;

// Vertices of a line with at most most_vertices of its points: of equal pieces of its samples the first, the
// last, those with the least and greatest place on each axis, and one that is not finite, in their order.
struct Path {
  std::vector<double> x, y, z;
  size_t samples = 0;
};
Path path_of(std::span<const double> x, std::span<const double> y, std::span<const double> z);

// A surface with at most most_mesh_side values on each axis: the greatest of equal groups of neighbours, NaN
// where there is none. Values are row by row, one row for each z; values.size() == x.size() * z.size().
struct Surface {
  std::vector<double> x, z, values;
};
Surface surface_of(std::span<const double> x, std::span<const double> z, std::span<const double> values);

}  // namespace kvalo_view
