// Histogram of one series and heatmap of two: counts of samples in equal cells.
//
// Cells divide [min, max] of the samples; each holds its lower edge, the last one its upper edge too.
// Edges are min + i * width, rounded once per operation, and samples are compared with them, so that a
// sample exactly at an edge is never miscounted. When all samples are equal, the range is widened by 0.5 on
// both sides (by 2^-32 of the value if that is more). Work on all cores.
//
// exc::error_t, with a sentence that says what to do: infinite samples; more cells than the range
// has room for (edges that coincide); a range wider than the largest double; too many cells.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "kvalo/export.h"
#include "runtime/dsp_range.h"

namespace mirn3::dsp {

constexpr size_t most_bins = 1'000'000;
constexpr size_t most_cells = 4'000'000;

struct histogram_t {
  std::vector<double> centres;      // one per bin
  std::vector<double> values;       // samples in the bin
  std::vector<std::string> labels;  // "[lo, hi)" with six significant digits
};

// NaN is left out; only NaN throws. 1 <= bins <= most_bins.
MIRN3_API histogram_t histogram(const arg_t& range, size_t bins);

struct heatmap_t {
  std::vector<std::vector<double>> rows;   // samples in the cell: rows[row][col], row 0 the lowest Y
  double total = 0;                        // samples in all cells
  std::vector<std::string> column_labels;  // centres of the cells, six significant digits
  std::vector<std::string> row_labels;
};

// X and Y are paired by time: every sample of X with the last one of Y (of its range) that is not later.
// Samples of X before the first of Y, and pairs with a NaN, are left out; without a pair the total is 0
// and the labels are empty. Stamps ascend. rows, cols >= 1, rows * cols <= most_cells.
MIRN3_API heatmap_t heatmap(const arg_t& x, const arg_t& y, size_t rows, size_t cols);

}  // namespace mirn3::dsp
