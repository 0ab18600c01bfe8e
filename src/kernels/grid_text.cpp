// Writes series on a regular time grid as delimited text.
#include "kernels/grid_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <stdexcept>

#include "kernels/decimal_text.h"
#include "runtime/par.h"

namespace mirn2::kernels {

namespace {

// Values (times included) that one part of a batch formats: long enough to pay for a thread, small enough
// that the texts of all parts stay in some megabytes.
constexpr size_t values_of_part = size_t{1} << 17;

// Rows that are looked up together before they are written.
constexpr size_t rows_of_tile = 64;

// Samples that a search looks at side by side, and how many times before it bisects again.
constexpr size_t window = 4;
constexpr size_t most_windows = 4;

bool is_sorted(std::span<const double> x) {
  if (std::isnan(x.front())) return false;
  bool sorted = true;
  for (size_t i = 1; i < x.size(); ++i) sorted &= x[i - 1] <= x[i];  // false with a NaN
  return sorted;
}

// The first index at or after `first` whose time is at or after t, where that is likely to be near.
size_t search_on(std::span<const double> x, size_t first, double t) {
  for (size_t i = 0; i < most_windows && first + window <= x.size(); ++i) {
    // In sorted samples the number of earlier ones is the way to go; no branch depends on it.
    size_t earlier = 0;
    for (size_t k = 0; k < window; ++k) earlier += x[first + k] < t;
    first += earlier;
    if (earlier < window) return first;
  }
  size_t last = first;
  for (size_t stride = window; last < x.size() && x[last] < t; stride *= 2) {
    first = last;
    last += std::min(stride, x.size() - last);
  }
  return static_cast<size_t>(std::lower_bound(x.begin() + static_cast<ptrdiff_t>(first),
                                              x.begin() + static_cast<ptrdiff_t>(last), t) -
                             x.begin());
}

}  // namespace

struct GridWriter::Column {
  std::span<const double> x;
  std::span<const double> y;
  bool sorted = false;

  double value(size_t found) const { return y[std::min(found, y.size() - 1)]; }
};

// The text of a run of rows, in a buffer that is kept from batch to batch.
class GridWriter::Part {
 public:
  void format(const GridWriter& grid, std::span<const double> times) {
    const std::vector<Column>& columns = grid.columns_;
    size_ = 0;
    cursors_.resize(columns.size());
    values_.resize(columns.size() * rows_of_tile);
    for (size_t i = 0; i < columns.size(); ++i) cursors_[i] = bisect(columns[i].x, times.front());
    while (!times.empty()) {
      const auto tile = times.first(std::min(rows_of_tile, times.size()));
      for (size_t i = 0; i < columns.size(); ++i) look_up(columns[i], tile, i, columns.size());
      write_rows(grid, tile);
      times = times.subspan(tile.size());
    }
  }

  std::string_view text() const { return {text_.get(), size_}; }

 private:
  // Fills one column of the tile's values, which lie row by row. One column after the other, as many
  // long vectors read side by side would push each other out of the cache.
  void look_up(const Column& column, std::span<const double> tile, size_t first, size_t stride) {
    size_t cursor = cursors_[first];
    double* value = values_.data() + first;
    for (const double t : tile) {
      cursor = column.sorted ? search_on(column.x, cursor, t) : bisect(column.x, t);
      *value = column.value(cursor);
      value += stride;
    }
    cursors_[first] = cursor;
  }

  void write_rows(const GridWriter& grid, std::span<const double> tile) {
    // Rows in the usual form need no more than this; longer numbers make room for themselves.
    const std::string_view delimiter = grid.delimiter_;
    const size_t columns = grid.columns_.size();
    const size_t room = (columns + 1) * (delimiter.size() + most_fast_text) + 1;
    const double* value = values_.data();
    for (const double t : tile) {
      reserve(room);
      char* out = write(text_.get() + size_, t, grid.decimals_, room);
      for (size_t i = 0; i < columns; ++i, ++value) {
        for (const char c : delimiter) *out++ = c;
        char* end = write_decimal(out, *value, 6);
        out = end != nullptr ? end : write(out, *value, 6, room);
      }
      *out++ = '\n';
      size_ = static_cast<size_t>(out - text_.get());
    }
  }

  static size_t bisect(std::span<const double> x, double t) {
    return static_cast<size_t>(std::lower_bound(x.begin(), x.end(), t) - x.begin());
  }

  // Writes a number of any size at `out` and leaves at least `room` after it.
  char* write(char* out, double value, int decimals, size_t room) {
    if (decimals <= most_fast_decimals) {
      if (char* end = write_decimal(out, value, decimals)) return end;
    }
    fmt::memory_buffer long_text;
    fmt::format_to(std::back_inserter(long_text), "{:.{}f}", value, decimals);
    size_ = static_cast<size_t>(out - text_.get());
    reserve(long_text.size() + room);
    out = text_.get() + size_;
    std::memcpy(out, long_text.data(), long_text.size());
    return out + long_text.size();
  }

  void reserve(size_t n) {
    if (capacity_ - size_ >= n) return;
    const size_t capacity = std::max(size_ + n, capacity_ + capacity_ / 2);
    auto grown = std::make_unique_for_overwrite<char[]>(capacity);
    if (size_ != 0) std::memcpy(grown.get(), text_.get(), size_);
    text_ = std::move(grown);
    capacity_ = capacity;
  }

  std::unique_ptr<char[]> text_;
  size_t size_ = 0;
  size_t capacity_ = 0;
  std::vector<size_t> cursors_;
  std::vector<double> values_;
};

int time_decimals(double step) {
  if (!(step > 0.0 && step < 1.0)) return 0;
  // The exponent of the shortest text is the floor of the decimal logarithm, free of the logarithm's own
  // rounding at powers of ten.
  char text[32];
  const auto end = std::to_chars(std::begin(text), std::end(text), step, std::chars_format::scientific).ptr;
  int exponent = 0;
  const char* sign = std::find(std::begin(text), end, 'e') + 1;
  std::from_chars(sign + 1, end, exponent);
  return exponent + 1;
}

bool grid_advances(double tini, double step, double tend) {
  if (!std::isfinite(tini) || !std::isfinite(step) || !std::isfinite(tend) || step <= 0.0) return false;
  // Doubles are widest apart at the larger limit. A step of exactly half that distance would move every
  // other time only.
  const double largest = std::max(std::abs(tini), std::abs(tend));
  const double distance = std::nextafter(largest, HUGE_VAL) - largest;
  return step > distance / 2.0;
}

GridWriter::GridWriter(const std::vector<GridColumn>& columns, std::string_view delimiter, const Grid& grid)
    : delimiter_(delimiter),
      grid_(grid),
      decimals_(0),
      time_(grid.tini),
      finished_(!(grid.tini <= grid.tend)) {
  if (!grid_advances(grid.tini, grid.step, grid.tend)) {
    throw std::invalid_argument("The step does not move the time from the first limit to the last");
  }
  decimals_ = time_decimals(grid.step);
  columns_.reserve(columns.size());
  for (const GridColumn& column : columns) {
    if (column.y.empty() || column.x.size() != column.y.size()) {
      throw std::invalid_argument("A column needs samples, and as many times as values");
    }
    columns_.push_back({column.x, column.y, false});
  }
  mirn3::par::run(columns_.size(), [this](size_t i) { columns_[i].sorted = is_sorted(columns_[i].x); });
}

GridWriter::~GridWriter() = default;

std::span<const std::string_view> GridWriter::next() {
  if (parts_.empty()) {
    for (size_t i = mirn3::par::workers(); i > 0; --i) parts_.push_back(std::make_unique<Part>());
  }
  const size_t rows_of_part = std::max(values_of_part / (columns_.size() + 1), size_t{1});
  times_.clear();
  while (!finished_ && times_.size() < rows_of_part * parts_.size()) {
    times_.push_back(time_);
    const double following = time_ + grid_.step;
    finished_ = !(following > time_ && following <= grid_.tend);
    time_ = following;
  }

  // Few rows at the end are shared out evenly, too.
  const std::span<const double> times(times_);
  const size_t used = std::min(parts_.size(), (times.size() + 63) / 64);
  mirn3::par::run(used, [&](size_t i) {
    const size_t first = times.size() * i / used;
    parts_[i]->format(*this, times.subspan(first, times.size() * (i + 1) / used - first));
  });
  pieces_.clear();
  for (size_t i = 0; i < used; ++i) pieces_.push_back(parts_[i]->text());
  return pieces_;
}

}  // namespace mirn2::kernels
