// Picks the vertices of three-dimensional charts.
#include "view/space.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace kvalo_view {

namespace {

constexpr size_t picks = 9;  // first, last, six extremes, one gap

// The points of one piece that are kept, ascending and each once.
std::vector<size_t> kept(const std::array<std::span<const double>, 3>& axes, size_t first, size_t last) {
  std::vector<size_t> result{first, last - 1};
  size_t gap = last;
  std::array<size_t, 6> extremes;
  extremes.fill(last);
  for (size_t i = first; i < last; ++i) {
    if (!std::isfinite(axes[0][i]) || !std::isfinite(axes[1][i]) || !std::isfinite(axes[2][i])) {
      gap = std::min(gap, i);
      continue;
    }
    for (size_t k = 0; k < 3; ++k) {
      size_t& lo = extremes[2 * k];
      size_t& hi = extremes[2 * k + 1];
      if (lo == last || axes[k][i] < axes[k][lo]) lo = i;
      if (hi == last || axes[k][i] > axes[k][hi]) hi = i;
    }
  }
  result.push_back(gap);
  result.insert(result.end(), extremes.begin(), extremes.end());
  std::sort(result.begin(), result.end());
  result.erase(std::unique(result.begin(), result.end()), result.end());
  while (!result.empty() && result.back() >= last) result.pop_back();
  return result;
}

// The middle of each group of `group` neighbours.
std::vector<double> middles(std::span<const double> axis, size_t group) {
  std::vector<double> result;
  for (size_t i = 0; i < axis.size(); i += group) {
    const size_t end = std::min(i + group, axis.size());
    result.push_back(axis[i] / 2 + axis[end - 1] / 2);
  }
  return result;
}

}  // namespace

Path path_of(std::span<const double> x, std::span<const double> y, std::span<const double> z) {
  Path path;
  path.samples = x.size();
  const size_t pieces = x.size() <= most_vertices ? x.size() : most_vertices / picks;
  for (size_t piece = 0; piece < pieces; ++piece) {
    for (const size_t i : kept({x, y, z}, x.size() * piece / pieces, x.size() * (piece + 1) / pieces)) {
      path.x.push_back(x[i]);
      path.y.push_back(y[i]);
      path.z.push_back(z[i]);
    }
  }
  return path;
}

Surface surface_of(std::span<const double> x, std::span<const double> z, std::span<const double> values) {
  const auto group_of = [](size_t n) {
    return std::max<size_t>((n + most_mesh_side - 1) / most_mesh_side, 1);
  };
  const size_t across = group_of(x.size());
  const size_t deep = group_of(z.size());
  Surface surface{middles(x, across), middles(z, deep), {}};
  const size_t columns = surface.x.size();
  surface.values.assign(columns * surface.z.size(), std::numeric_limits<double>::quiet_NaN());
  for (size_t row = 0; row < z.size(); ++row) {
    for (size_t column = 0; column < x.size(); ++column) {
      double& cell = surface.values[row / deep * columns + column / across];
      const double value = values[row * x.size() + column];
      if (!(cell >= value)) cell = std::isnan(value) ? cell : value;
    }
  }
  return surface;
}

}  // namespace kvalo_view
