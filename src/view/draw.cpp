// Fills the data of tiles.
#include "view/draw.h"

#include <algorithm>
#include <cmath>

namespace kvalo_view {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double greatest_float = std::numeric_limits<float>::max();

float narrow(double value) {
  return static_cast<float>(std::isnan(value) ? value : std::clamp(value, -greatest_float, greatest_float));
}

uint32_t ratio_of(size_t samples, size_t places) {
  const double ratio = static_cast<double>(samples) / static_cast<double>(std::max<size_t>(places, 1));
  return static_cast<uint32_t>(std::clamp(std::round(ratio), 1.0, 4e9));
}

// The middle of finite values: what floats are counted from.
double middle_of(const Extremes& all) { return all.empty() ? 0 : all.lo / 2 + all.hi / 2; }

Extremes extremes_of(std::span<const double> values) {
  Extremes all;
  for (const double value : values) all.add(value);
  return all;
}

double truth(double value) { return std::isnan(value) ? nan : value == 0 ? 0 : 1; }

// The column of truth values behind a column of values that are all on one side of 0.
Column truth(const Column& column) {
  const double near = std::fabs(column.lo) < std::fabs(column.hi) ? column.lo : column.hi;
  const double far = std::fabs(column.lo) < std::fabs(column.hi) ? column.hi : column.lo;
  return {truth(column.first), truth(near), truth(far), truth(column.last), column.marks};
}

// From a sample before the range to one after it.
void draw_samples(Tile& tile, const Curve& curve, const Part& part, Look look) {
  const size_t first = part.first == 0 ? 0 : part.first - 1;
  const size_t last = std::min(part.last + 1, curve.x.size());
  tile.header.form = Form::samples;
  tile.header.n = static_cast<uint32_t>(last - first);
  tile.append(curve.x.subspan(first, last - first));
  for (size_t i = first; i < last; ++i) {
    const double value = curve.y[i];
    tile.append(look == Look::truth && std::isfinite(value) ? truth(value) : value);
  }
}

void draw_columns(Tile& tile, Columns found) {
  Extremes all;
  for (const Column& column : found.columns) {
    for (const double value : {column.first, column.lo, column.hi, column.last}) {
      if (!std::isnan(value)) all.add(value);
    }
  }
  const double y0 = middle_of(all);
  TileHeader& header = tile.header;
  header.y0 = y0;
  header.n = static_cast<uint32_t>(found.columns.size());
  header.before_x = found.before_x;
  header.before_y = found.before_y;
  header.after_x = found.after_x;
  header.after_y = found.after_y;
  header.ratio = ratio_of(found.samples, found.columns.size());
  header.flags |= tile_decimated;
  tile.data.reserve(17 * found.columns.size());
  for (const Column& column : found.columns) {
    for (const double value : {column.first, column.lo, column.hi, column.last})
      tile.append(narrow(value - y0));
  }
  for (const Column& column : found.columns) tile.append(column.marks);
}

}  // namespace

bool is_one_sided(const Extremes& values) { return values.empty() || values.lo >= 0 || values.hi <= 0; }

Range with_extent(Range range) {
  if (!(range.lo <= range.hi) || !std::isfinite(range.lo) || !std::isfinite(range.hi)) return {0, 1};
  if (range.lo < range.hi) return range;
  const double half = std::max(0.5, std::fabs(range.lo) * 1e-6);
  return {range.lo - half, range.hi + half};
}

void draw_curve(Tile& tile, const Curve& curve, Look look, Range range, size_t width) {
  tile.header.x0 = range.lo;
  tile.header.x1 = range.hi;
  if (look != Look::line) tile.header.flags |= tile_hold;
  const Part part = part_of(curve.x, range);
  if (part.size() == 0) tile.header.flags |= tile_nothing;
  if (part.size() < 2 * width) {
    draw_samples(tile, curve, part, look);
    return;
  }
  tile.header.form = look == Look::line ? Form::columns : Form::hold_columns;
  Columns found = look == Look::line ? line_columns(curve, range, width) : hold_columns(curve, range, width);
  if (look == Look::truth) {
    std::transform(found.columns.begin(), found.columns.end(), found.columns.begin(),
                   [](const Column& column) { return truth(column); });
    if (std::isfinite(found.before_y)) found.before_y = truth(found.before_y);
    if (std::isfinite(found.after_y)) found.after_y = truth(found.after_y);
  }
  draw_columns(tile, std::move(found));
}

void draw_dots(Tile& tile, std::span<const double> x, std::span<const double> y, Range across, Range up,
               size_t width, size_t height) {
  TileHeader& header = tile.header;
  header.flags |= tile_dots;
  header.x0 = across.lo;
  header.x1 = across.hi;
  header.y0 = up.lo;
  header.y1 = up.hi;
  const auto inside = [&](size_t i) {
    return x[i] >= across.lo && x[i] <= across.hi && y[i] >= up.lo && y[i] <= up.hi;
  };
  // As many points as are still smaller than the pixels that they may fill.
  const size_t most = std::min(width * height / 4, size_t{8192});
  std::vector<size_t> points;
  size_t i = 0;
  for (; i < x.size() && points.size() <= most; ++i) {
    if (inside(i)) points.push_back(i);
  }
  if (points.size() <= most) {
    header.form = Form::samples;
    header.n = static_cast<uint32_t>(points.size());
    header.y0 = 0;
    if (points.empty()) header.flags |= tile_nothing;
    for (const size_t point : points) tile.append(x[point]);
    for (const size_t point : points) tile.append(y[point]);
    return;
  }
  const Mask mask = occupied(x, y, across, up, width, height);
  const size_t count = mask.count();
  header.flags |= tile_decimated;
  header.ratio = ratio_of(x.size(), count);
  if (count < mask.words.size()) {
    header.form = Form::pixels;
    header.n = static_cast<uint32_t>(count);
    header.m = static_cast<uint32_t>(height << 16 | width);
    tile.append(std::span<const uint32_t>(mask.pixels()));
    return;
  }
  header.form = Form::mask;
  header.n = static_cast<uint32_t>(width);
  header.m = static_cast<uint32_t>(height);
  tile.append(std::span<const uint32_t>(mask.words));
}

void draw_grid(Tile& tile, const Grid& grid) {
  TileHeader& header = tile.header;
  header.form = Form::grid;
  header.x0 = grid.x.lo;
  header.x1 = grid.x.hi;
  header.y0 = grid.y.lo;
  header.y1 = grid.y.hi;
  header.n = static_cast<uint32_t>(grid.width);
  header.m = static_cast<uint32_t>(grid.height);
  header.ratio = static_cast<uint32_t>(std::min<size_t>(grid.samples, UINT32_MAX));
  tile.append(std::span<const float>(grid.cells));
}

void draw_path(Tile& tile, const Path& path) {
  const double x0 = middle_of(extremes_of(path.x)), y0 = middle_of(extremes_of(path.y));
  const double z0 = middle_of(extremes_of(path.z));
  TileHeader& header = tile.header;
  header.form = Form::path3;
  header.n = static_cast<uint32_t>(path.x.size());
  header.after_x = x0;
  header.after_y = y0;
  header.y0 = 0;
  header.y1 = z0;
  header.ratio = ratio_of(path.samples, path.x.size());
  if (path.samples > path.x.size()) header.flags |= tile_decimated;
  const auto place = [](double value, double from) {
    return narrow(std::isfinite(value) ? value - from : nan);
  };
  for (const double value : path.x) tile.append(place(value, x0));
  for (const double value : path.y) tile.append(place(value, y0));
  for (const double value : path.z) tile.append(place(value, z0));
}

void draw_surface(Tile& tile, const Surface& surface) {
  tile.header.form = Form::mesh;
  tile.header.n = static_cast<uint32_t>(surface.x.size());
  tile.header.m = static_cast<uint32_t>(surface.z.size());
  tile.append(std::span<const double>(surface.x));
  tile.append(std::span<const double>(surface.z));
  for (const double value : surface.values) tile.append(narrow(std::isfinite(value) ? value : nan));
}

}  // namespace kvalo_view
