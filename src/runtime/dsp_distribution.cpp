// Histogram and heatmap: limits in one pass, counts in the next, each part with counters of its own.
//
// Where the processor has 32-byte vectors, the cell of a value is found by one product, and only values next
// to an edge are compared with the edges themselves.
#include "runtime/dsp_distribution.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>

#include "runtime/dsp_scan.h"
#include "runtime/exc.h"
#include "runtime/machine.h"
#include "runtime/par.h"

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace mirn3::dsp {

namespace {

constexpr size_t block = 512;  // samples whose cells are found at once

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
      throw exc::error_t("The values of the selected range are too far apart; limit them with clamp()");
    }
    step_ = width / static_cast<double>(cells);
    // What rounding may move a value against an edge, in cells: of the product, and of the edge.
    const double most = std::max(std::abs(limits.lo), std::abs(limits.hi));
    near_edge_ = std::ldexp(static_cast<double>(cells), -49) + std::ldexp(most, -50) * per_unit_;
    for (size_t i = 0; i < cells; ++i) edges_[i] = static_cast<double>(i) * step_ + lo_;
    edges_[cells] = limits.hi;
    const auto meet = [](double a, double b) { return !(a < b); };
    if (std::adjacent_find(edges_.begin(), edges_.end(), meet) != edges_.end()) {
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
  // For cells so narrow that their number in a unit is no double.
  void search(const double* values, size_t n, int32_t* out) const;
#ifdef __x86_64__
  [[gnu::target("avx2")]] void locate_avx2(const double* values, size_t n, int32_t* out) const;
#endif

  double lo_ = 0;
  double step_ = 0;
  double per_unit_ = 0;
  double near_edge_ = 0;
  size_t cells_;
  std::vector<double> edges_;
};

#ifdef __x86_64__
[[gnu::target("avx2")]] void Axis::locate_avx2(const double* values, size_t n, int32_t* out) const {
  const __m256d lo = _mm256_set1_pd(lo_), per_unit = _mm256_set1_pd(per_unit_);
  const __m256d near = _mm256_set1_pd(near_edge_), far = _mm256_set1_pd(1 - near_edge_);
  __m256d sure = _mm256_cmp_pd(near, far, _CMP_LT_OQ);
  size_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m256d guess = _mm256_mul_pd(_mm256_sub_pd(_mm256_loadu_pd(values + i), lo), per_unit);
    const __m128i cell = _mm256_cvttpd_epi32(guess);
    const __m256d behind_edge = _mm256_sub_pd(guess, _mm256_cvtepi32_pd(cell));
    // False for NaN too; the greatest value lies on an edge.
    sure = _mm256_and_pd(sure, _mm256_and_pd(_mm256_cmp_pd(behind_edge, near, _CMP_GT_OQ),
                                             _mm256_cmp_pd(behind_edge, far, _CMP_LT_OQ)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), cell);
  }
  const size_t done = _mm256_movemask_pd(sure) == 0xf ? i : 0;
  locate(values + done, n - done, out + done);
}
#endif

void Axis::search(const double* values, size_t n, int32_t* out) const {
  for (size_t i = 0; i < n; ++i) {
    const auto inner = std::upper_bound(edges_.begin() + 1, edges_.end() - 1, values[i]);
    const auto cell = static_cast<size_t>(inner - edges_.begin()) - 1;
    out[i] = static_cast<int32_t>(values[i] == values[i] ? cell : cells_);
  }
}

void Axis::cells_of(const double* values, size_t n, int32_t* out) const {
  if (std::isinf(per_unit_)) return search(values, n, out);
#ifdef __x86_64__
  if (machine::has_avx2()) return locate_avx2(values, n, out);
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

// The samples of X, each with the sample of Y that holds at its time.
class Pairs {
 public:
  Pairs(const arg_t& x, const arg_t& y) : x_(x), y_(y) {
    // Samples of X before the first one of Y have none.
    const double* const begin = y.x + y.first;
    const double* const end = y.x + y.last;
    first_ = static_cast<size_t>(std::lower_bound(x.x + x.first, x.x + x.last, *begin) - x.x);
    if (first_ == x.last) return;
    const double* const held = std::upper_bound(begin, end, x.x[first_]) - 1;
    const size_t count = size();
    if (held < begin || static_cast<size_t>(end - held) < count) return;
    const double* const after = held + count;
    if (after != end && !(*after > after[-1])) return;  // the last stamp again, with another value
    if (is_same_time({x.x + first_, count}, {held, count})) same_ = y.y + (held - y.x);
  }

  // Samples of X that may have one of Y.
  size_t size() const { return x_.last - first_; }

  // Goes through the pairs [first, last) and calls visit(values of X, values of Y, n) for up to `block` of
  // them at a time.
  template <typename Visit>
  void walk(size_t first, size_t last, const Visit& visit) const {
    if (same_ == nullptr) return merge(first_ + first, first_ + last, visit);
    for (size_t i = first; i < last; i += block) {
      visit(x_.y + first_ + i, same_ + i, std::min(block, last - i));
    }
  }

 private:
  template <typename Visit>
  void merge(size_t first, size_t last, const Visit& visit) const {
    const double* const begin = y_.x + y_.first;
    const double* const end = y_.x + y_.last;
    const double* next = std::upper_bound(begin, end, x_.x[first]);  // the first stamp of Y that is later
    if (next == begin) return;                                       // stamps that do not ascend
    double of_y[block];
    for (size_t i = first; i < last; i += block) {
      const size_t n = std::min(block, last - i);
      for (size_t k = 0; k < n; ++k) {
        const double t = x_.x[i + k];
        while (next != end && *next <= t) ++next;
        of_y[k] = y_.y[next - y_.x - 1];
      }
      visit(x_.y + i, of_y, n);
    }
  }

  arg_t x_;
  arg_t y_;
  size_t first_ = 0;
  const double* same_ = nullptr;  // the values of Y, if both have the same time stamps
};

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
  par::ranges(values.size(), std::max(scan_least, 4 * bins), [&](size_t first, size_t last) {
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
  const Pairs pairs(x, y);
  par::ranges(pairs.size(), scan_least, [&](size_t first, size_t last) {
    Limits mine_x;
    Limits mine_y;
    pairs.walk(first, last,
               [&](const double* a, const double* b, size_t n) { add_pairs(a, b, n, mine_x, mine_y); });
    const std::lock_guard lock(mutex);
    of_x.add(mine_x);
    of_y.add(mine_y);
  });
  if (of_x.empty()) return {std::vector(rows, std::vector<double>(cols, 0)), 0, {}, {}};
  const Axis across(of_x, cols);
  const Axis up(of_y, rows);

  Counts counts(rows * cols);
  par::ranges(pairs.size(), std::max(scan_least, 4 * rows * cols), [&](size_t first, size_t last) {
    std::vector<uint64_t> mine(rows * cols, 0);
    int32_t columns[block];
    int32_t lines[block];
    pairs.walk(first, last, [&](const double* a, const double* b, size_t n) {
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
