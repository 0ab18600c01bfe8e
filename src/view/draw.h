// Turns curves, clouds and tables into the data of tiles.
#pragma once

#include "view/columns.h"
#include "view/pixels.h"
#include "view/space.h"
#include "view/spectrogram.h"
#include "view/tile.h"

namespace kvalo_view {

// How a series' values are shown.
enum class Look : uint8_t { line, hold, truth };  // truth: hold, and everything but 0 is 1

// Columns, or the samples where there are fewer than two a column. The pyramid is of the values as they are.
// For truth no value may lie on the other side of 0 than another: `is_one_sided` tells.
void draw_curve(Tile& tile, const Curve& curve, Look look, Range range, size_t width);
bool is_one_sided(const Extremes& values);

// Points, pixels or a mask, whichever is smallest, of those within both ranges.
void draw_dots(Tile& tile, std::span<const double> x, std::span<const double> y, Range across, Range up,
               size_t width, size_t height);

void draw_grid(Tile& tile, const Grid& grid);
void draw_path(Tile& tile, const Path& path);
void draw_surface(Tile& tile, const Surface& surface);

// A range that has an extent and is finite: one value is widened by 0.5 to both sides (by a millionth if
// that is more), nothing at all is 0 to 1.
Range with_extent(Range range);

}  // namespace kvalo_view
