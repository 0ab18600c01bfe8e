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
    const double step = width / static_cast<double>(cells);
    for (size_t i = 0; i < cells; ++i) edges_[i] = static_cast<double>(i) * step + limits.lo;
    edges_[cells] = limits.hi;
    const auto meet = [](double a, double b) { return !(a < b); };
    if (std::adjacent_find(edges_.begin(), edges_.end(), meet) != edges_.end() || !std::isfinite(per_unit_)) {
      throw exc::error_t(
          fmt::format("The values between {:.17g} and {:.17g} have no room for {:d} cells; ask for fewer",
                      limits.lo, limits.hi, cells));
    }
  }

  // The cell of a value within the limits.
  size_t cell(double value) const {
    // The quotient may round across an edge; the edges decide.
    const auto guess = std::min(static_cast<size_t>((value - lo_) * per_unit_), cells_ - 1);
    if (value < edges_[guess]) return guess - 1;
    return guess + static_cast<size_t>(value >= edges_[guess + 1] && guess + 1 < cells_);
  }

  double edge(size_t i) const { return edges_[i]; }
  double centre(size_t i) const { return edges_[i] / 2 + edges_[i + 1] / 2; }

  std::vector<std::string> centre_labels() const {
    std::vector<std::string> labels(cells_);
    for (size_t i = 0; i < cells_; ++i) labels[i] = fmt::format("{:g}", centre(i));
    return labels;
  }

 private:
  double lo_ = 0;
  double per_unit_ = 0;
  size_t cells_;
  std::vector<double> edges_;
};

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

// Calls pair(value of X, value of Y) for the samples [first, last) of X that have a Y.
template <typename Pair>
void walk(const arg_t& x, const arg_t& y, size_t first, size_t last, const Pair& pair) {
  const double* begin = y.x + y.first;
  const double* end = y.x + y.last;
  const double* next = std::upper_bound(begin, end, x.x[first]);  // the first stamp of Y that is later
  for (size_t i = first; i < last; ++i) {
    const double t = x.x[i];
    while (next != end && *next <= t) ++next;
    if (next != begin) pair(x.y[i], y.y[next - y.x - 1]);
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
    std::vector<uint64_t> even(bins, 0);
    std::vector<uint64_t> odd(bins, 0);
    const auto count = [&](double value, std::vector<uint64_t>& into) {
      if (value == value) ++into[axis.cell(value)];
    };
    size_t i = first;
    for (; i + 1 < last; i += 2) {
      count(values[i], even);
      count(values[i + 1], odd);
    }
    if (i < last) count(values[i], even);
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
    walk(x, y, x.first + first, x.first + last, [&](double a, double b) {
      if (a == a && b == b) {
        mine_x.add(a);
        mine_y.add(b);
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
    walk(x, y, x.first + first, x.first + last, [&](double a, double b) {
      if (a == a && b == b) ++mine[up.cell(b) * cols + across.cell(a)];
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
