// Histogram and heatmap: limits in one pass, counts in the next, each part with counters of its own.
#include "runtime/dsp_distribution.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>

#include "runtime/exc.h"
#include "runtime/par.h"

namespace mirn3::dsp {

namespace {

constexpr size_t least = 1 << 16;  // samples for which a thread pays off
constexpr size_t block = 512;      // samples whose cells are found at once

struct Limits {
  double lo = std::numeric_limits<double>::infinity();
  double hi = -std::numeric_limits<double>::infinity();

  void add(double value) {
    lo = value < lo ? value : lo;  // false for NaN
    hi = value > hi ? value : hi;
  }
  void add(const Limits& other) {
    add(other.lo);
    add(other.hi);
  }
  bool empty() const { return lo > hi; }
};

Limits limits_of(std::span<const double> values) {
  Limits all;
  std::mutex mutex;
  par::ranges(values.size(), least, [&](size_t first, size_t last) {
    constexpr size_t lanes = 8;  // apart from each other, so that none waits for the one before
    Limits lane[lanes];
    size_t i = first;
    for (; i + lanes <= last; i += lanes) {
      for (size_t k = 0; k < lanes; ++k) lane[k].add(values[i + k]);
    }
    for (; i < last; ++i) lane[0].add(values[i]);
    const std::lock_guard lock(mutex);
    for (const Limits& limits : lane) {
      if (!limits.empty()) all.add(limits);
    }
  });
  return all;
}

// Equal cells over a range of values.
class Axis {
 public:
  // Throws exc::error_t as the header says. The limits are not empty.
  Axis(Limits limits, size_t cells) : cells_(cells), edges_(cells + 1) {
    if (std::isinf(limits.lo) || std::isinf(limits.hi)) {
      throw exc::error_t(
          "The selected range holds infinite values, which no cell can hold; limit them with clamp()");
    }
    if (limits.lo == limits.hi) {
      const double half = std::max(0.5, std::ldexp(std::abs(limits.lo), -32));
      limits = {limits.lo - half, limits.hi + half};
    }
    lo_ = limits.lo;
    const double width = limits.hi - limits.lo;
    per_unit_ = static_cast<double>(cells) / width;
    if (!std::isfinite(width) || !(per_unit_ > 0)) {
      throw exc::error_t("The values of the selected range lie too far apart; limit them with clamp()");
    }
    step_ = width / static_cast<double>(cells);
    for (size_t i = 0; i < cells; ++i) edges_[i] = static_cast<double>(i) * step_ + lo_;
    edges_[cells] = limits.hi;
    const auto meet = [](double a, double b) { return !(a < b); };
    if (std::adjacent_find(edges_.begin(), edges_.end(), meet) != edges_.end() || !std::isfinite(per_unit_)) {
      throw exc::error_t(
          fmt::format("The values between {:.17g} and {:.17g} have no room for {:d} cells; ask for fewer",
                      limits.lo, limits.hi, cells));
    }
  }

  // The cells of values within the limits; NaN gets the number of cells, which is none of them.
  void cells_of(const double* values, size_t n, int32_t* out) const;

  double edge(size_t i) const { return edges_[i]; }
  double centre(size_t i) const { return (static_cast<double>(i) + 0.5) * step_ + lo_; }

  std::vector<std::string> centre_labels() const {
    std::vector<std::string> labels(cells_);
    for (size_t i = 0; i < cells_; ++i) labels[i] = fmt::format("{:g}", centre(i));
    return labels;
  }

 private:
  // Written so that it becomes vector code: everything is computed for all, then selected.
  [[gnu::always_inline]] void locate(const double* values, size_t n, int32_t* out) const {
    const double none = static_cast<double>(cells_);
    const double top = none - 1;
    for (size_t i = 0; i < n; ++i) {
      const double value = values[i];
      const double clean = value == value ? value : lo_;
      double guess = (clean - lo_) * per_unit_;
      guess = guess < top ? guess : top;
      const auto cell = static_cast<double>(static_cast<int32_t>(guess));
      // The quotient may have rounded across an edge; the edges, computed as in the table, decide.
      const double lower = cell * step_ + lo_;
      const double upper = (cell + 1) * step_ + lo_;
      const double down = clean < lower ? 1.0 : 0.0;
      const double up = clean >= upper ? 1.0 : 0.0;
      double found = cell - down + up;
      found = found < top ? found : top;
      out[i] = static_cast<int32_t>(value == value ? found : none);
    }
  }
#ifdef __x86_64__
  [[gnu::target("avx2")]] void locate_avx2(const double* values, size_t n, int32_t* out) const {
    locate(values, n, out);
  }
#endif

  double lo_ = 0;
  double step_ = 0;
  double per_unit_ = 0;
  size_t cells_;
  std::vector<double> edges_;
};

void Axis::cells_of(const double* values, size_t n, int32_t* out) const {
#ifdef __x86_64__
  static const bool has_avx2 = __builtin_cpu_supports("avx2");
  if (has_avx2) return locate_avx2(values, n, out);
#endif
  locate(values, n, out);
}

// Adds up what the parts counted, each in counters of its own.
class Counts {
 public:
  explicit Counts(size_t cells) : sums_(cells, 0) {}

  void add(std::span<const uint64_t> counts) {
    const std::lock_guard lock(mutex_);
    for (size_t i = 0; i < sums_.size(); ++i) sums_[i] += static_cast<double>(counts[i]);
  }
  std::vector<double> take() { return std::move(sums_); }

 private:
  std::mutex mutex_;
  std::vector<double> sums_;
};

// Goes through the samples [first, last) of X that have a Y and calls pairs(values of X, values of Y, n) for
// up to `block` of them at a time.
template <typename Pairs>
void walk(const arg_t& x, const arg_t& y, size_t first, size_t last, const Pairs& pairs) {
  const double* end = y.x + y.last;
  const double* const begin = y.x + y.first;
  // Samples of X before the first one of Y have none.
  size_t i = static_cast<size_t>(std::lower_bound(x.x + first, x.x + last, *begin) - x.x);
  if (i == last) return;
  const double* next = std::upper_bound(begin, end, x.x[i]);  // the first stamp of Y that is later
  if (next == begin) return;                                  // stamps that do not ascend
  double of_y[block];
  for (; i < last; i += block) {
    const size_t n = std::min(block, last - i);
    for (size_t k = 0; k < n; ++k) {
      const double t = x.x[i + k];
      while (next != end && *next <= t) ++next;
      of_y[k] = y.y[next - y.x - 1];
    }
    pairs(x.y + i, of_y, n);
  }
}

}  // namespace

histogram_t histogram(const arg_t& range, size_t bins) {
  if (bins < 1 || bins > most_bins) {
    throw exc::error_t(fmt::format("The number of bins must be between 1 and {:d}", most_bins));
  }
  const std::span<const double> values = range.values();
  const Limits limits = limits_of(values);
  if (limits.empty()) throw exc::error_t("All samples of the selected range are NaN; choose another range");
  const Axis axis(limits, bins);

  Counts counts(bins);
  par::ranges(values.size(), std::max(least, 4 * bins), [&](size_t first, size_t last) {
    // Two sets in turn: a counter that is hit again at once need not wait for itself.
    std::vector<uint64_t> even(bins + 1, 0);
    std::vector<uint64_t> odd(bins + 1, 0);
    int32_t cells[block + 1];
    for (size_t i = first; i < last; i += block) {
      const size_t n = std::min(block, last - i);
      axis.cells_of(&values[i], n, cells);
      cells[n] = static_cast<int32_t>(bins);
      for (size_t k = 0; k < n; k += 2) {
        ++even[static_cast<size_t>(cells[k])];
        ++odd[static_cast<size_t>(cells[k + 1])];
      }
    }
    counts.add(even);
    counts.add(odd);
  });

  histogram_t result;
  result.values = counts.take();
  result.centres.resize(bins);
  result.labels.resize(bins);
  for (size_t i = 0; i < bins; ++i) {
    result.centres[i] = axis.centre(i);
    result.labels[i] = fmt::format("[{:g}, {:g})", axis.edge(i), axis.edge(i + 1));
  }
  return result;
}

heatmap_t heatmap(const arg_t& x, const arg_t& y, size_t rows, size_t cols) {
  if (rows < 1 || cols < 1 || rows > most_cells / cols) {
    throw exc::error_t(fmt::format("A heatmap has between 1 and {:d} cells", most_cells));
  }
  Limits of_x;
  Limits of_y;
  std::mutex mutex;
  par::ranges(x.size(), least, [&](size_t first, size_t last) {
    Limits mine_x;
    Limits mine_y;
    walk(x, y, x.first + first, x.first + last, [&](const double* a, const double* b, size_t n) {
      for (size_t k = 0; k < n; ++k) {
        // With the NaN of the other, so that both or none count.
        mine_x.add(b[k] == b[k] ? a[k] : b[k]);
        mine_y.add(a[k] == a[k] ? b[k] : a[k]);
      }
    });
    const std::lock_guard lock(mutex);
    if (!mine_x.empty()) {
      of_x.add(mine_x);
      of_y.add(mine_y);
    }
  });
  if (of_x.empty()) return {std::vector(rows, std::vector<double>(cols, 0)), 0, {}, {}};
  const Axis across(of_x, cols);
  const Axis up(of_y, rows);

  Counts counts(rows * cols);
  par::ranges(x.size(), std::max(least, 4 * rows * cols), [&](size_t first, size_t last) {
    std::vector<uint64_t> mine(rows * cols, 0);
    int32_t columns[block];
    int32_t lines[block];
    walk(x, y, x.first + first, x.first + last, [&](const double* a, const double* b, size_t n) {
      across.cells_of(a, n, columns);
      up.cells_of(b, n, lines);
      for (size_t k = 0; k < n; ++k) {
        const auto col = static_cast<size_t>(columns[k]);
        const auto row = static_cast<size_t>(lines[k]);
        if (col < cols && row < rows) ++mine[row * cols + col];
      }
    });
    counts.add(mine);
  });

  heatmap_t result;
  const std::vector<double> cells = counts.take();
  for (size_t row = 0; row < rows; ++row) {
    const auto from = cells.begin() + static_cast<ptrdiff_t>(row * cols);
    result.rows.emplace_back(from, from + static_cast<ptrdiff_t>(cols));
  }
  for (const double count : cells) result.total += count;
  result.column_labels = across.centre_labels();
  result.row_labels = up.centre_labels();
  return result;
}

}  // namespace mirn3::dsp
