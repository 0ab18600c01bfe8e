// Time series as delimited text on a regular time grid: one row a time, one column a series.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mirn2::kernels {

// Decimals of the time column: none for steps of 1 and more; else one more than what shows the first
// digit of the step (0.25 gives 2, 0.1 gives 2, 0.01 gives 3).
int time_decimals(double step);

// Whether adding the step moves the time forward everywhere between both limits. False also when one of
// the three is not finite, or the step is not positive.
bool grid_advances(double tini, double step, double tend);

// The times tini, tini + step, (tini + step) + step, ... up to tend, tend included.
struct Grid {
  double tini;
  double step;
  double tend;
};

// One series: samples in time order, as many x as y, at least one.
struct GridColumn {
  std::span<const double> x;
  std::span<const double> y;
};

// Writes the rows, batch by batch, on all cores. Each row is the time with time_decimals(step) decimals,
// then for every column the delimiter and the value with six decimals ("nan", "inf" and their negatives
// as they are), then a line feed. A column's value at a time is its first sample at or after that time,
// or its last sample where there is none. Numbers are rounded exactly as printf rounds them.
//
// Columns whose x is not sorted, or holds NaN, are searched by the same bisection, whatever it finds.
class GridWriter {
 public:
  // The samples must stay until the last batch was written. Throws std::invalid_argument when the grid
  // does not advance, or a column has no samples or not as many x as y.
  GridWriter(const std::vector<GridColumn>& columns, std::string_view delimiter, const Grid& grid);
  ~GridWriter();
  GridWriter(const GridWriter&) = delete;
  GridWriter& operator=(const GridWriter&) = delete;

  // The next rows as pieces of text, to be written one after the other; valid until the next call. Empty
  // when all rows were given out. A batch takes some megabytes, however long the grid is.
  std::span<const std::string_view> next();

 private:
  class Part;
  struct Column;

  std::vector<Column> columns_;
  std::string delimiter_;
  Grid grid_;
  int decimals_;
  double time_;
  bool finished_;
  std::vector<double> times_;
  std::vector<std::unique_ptr<Part>> parts_;
  std::vector<std::string_view> pieces_;
};

}  // namespace mirn2::kernels
