// Answers questions about one series: extremes, means, searches, sorting.
#include "kernels/queries.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "runtime/par.h"

namespace mirn2::kernels {

namespace {

constexpr size_t least_scanned = size_t{1} << 18;  // elements that are worth another thread
constexpr size_t least_sorted = size_t{1} << 15;
constexpr double infinity = std::numeric_limits<double>::infinity();

// work(first, last) for contiguous parts of 0..n at once; the results in order of the parts.
template <typename Work>
auto by_parts(size_t n, size_t least, const Work& work) {
  const size_t parts = std::clamp<size_t>(n / least, 1, mirn3::par::workers());
  std::vector<decltype(work(n, n))> results(parts);
  mirn3::par::run(parts, [&](size_t p) { results[p] = work(n * p / parts, n * (p + 1) / parts); });
  return results;
}

// Calls with a comparison as a function object, so that the loop inside can be vectorised.
template <typename Work>
auto with_relation(Relation relation, double v, const Work& work) {
  switch (relation) {
    case Relation::less:
      return work([v](double a) { return a < v; });
    case Relation::less_equal:
      return work([v](double a) { return a <= v; });
    case Relation::equal:
      return work([v](double a) { return a == v; });
    case Relation::not_equal:
      return work([v](double a) { return a != v; });
    case Relation::greater:
      return work([v](double a) { return a > v; });
    case Relation::greater_equal:
      break;
  }
  return work([v](double a) { return a >= v; });
}

// ---- extremes ----

constexpr Extremes nothing_seen{infinity, -infinity};

// Two numbers in one register; written so because compilers leave a loop of such choices scalar.
using Two = double __attribute__((vector_size(16)));

Two load_two(const double* from) {
  Two two;
  std::memcpy(&two, from, sizeof two);
  return two;
}

// In several lanes, because one would wait for every comparison. The choices drop NaN. Of zeros with
// different signs any may be the result.
Extremes scan(std::span<const double> y) {
  constexpr size_t lanes = 4;
  Two lo[lanes];
  Two hi[lanes];
  std::fill_n(lo, lanes, Two{} + nothing_seen.lo);
  std::fill_n(hi, lanes, Two{} + nothing_seen.hi);
  size_t i = 0;
  for (; i + 2 * lanes <= y.size(); i += 2 * lanes) {
    for (size_t k = 0; k < lanes; ++k) {
      const Two v = load_two(y.data() + i + 2 * k);
      lo[k] = v < lo[k] ? v : lo[k];
      hi[k] = v > hi[k] ? v : hi[k];
    }
  }
  Extremes seen = nothing_seen;
  const auto widen = [&seen](double least, double most) {
    seen = {least < seen.lo ? least : seen.lo, most > seen.hi ? most : seen.hi};
  };
  for (; i < y.size(); ++i) widen(y[i], y[i]);
  for (size_t k = 0; k < 2 * lanes; ++k) widen(lo[k / 2][k % 2], hi[k / 2][k % 2]);
  return seen;
}

// lo > hi when there is no number.
Extremes scan_all(std::span<const double> y) {
  Extremes seen = nothing_seen;
  for (const Extremes part : by_parts(y.size(), least_scanned, [&](size_t first, size_t last) {
         return scan(y.subspan(first, last - first));
       })) {
    seen.lo = std::min(seen.lo, part.lo);
    seen.hi = std::max(seen.hi, part.hi);
  }
  return seen;
}

// ---- search ----

// First index in [first, last) that passes the test, or `last`; gives up, with `last`, where a match
// before it is known already.
template <typename Test>
size_t search(std::span<const double> y, size_t first, size_t last, const std::atomic<size_t>& known,
              Test test) {
  constexpr size_t block = 1024;
  for (size_t at = first; at < last && at < known.load(std::memory_order_relaxed); at += block) {
    const auto values = y.subspan(at, std::min(block, last - at));
    uint64_t hits = 0;
    for (const double v : values) hits += test(v) ? 1 : 0;
    if (hits == 0) continue;
    return at + static_cast<size_t>(std::ranges::find_if(values, test) - values.begin());
  }
  return last;
}

// ---- times ----

// The interval or 0.0, without a branch: values that change at random would mislead every prediction. The
// totals never become a negative zero, so adding 0.0 to them changes no bit.
double interval_if(bool counts, double interval) {
  return std::bit_cast<double>(std::bit_cast<uint64_t>(interval) & (uint64_t{0} - uint64_t{counts}));
}

// ---- order of time ----

// NaN sorts behind every number; the index decides between equal stamps.
struct Stamp {
  double t;
  size_t index;
};
bool is_before(double s, double t) { return std::isnan(t) ? !std::isnan(s) : s < t; }
bool comes_before(const Stamp& a, const Stamp& b) {
  if (is_before(a.t, b.t)) return true;
  return !is_before(b.t, a.t) && a.index < b.index;
}

void sort_stamps(std::vector<Stamp>& stamps) {
  const size_t n = stamps.size();
  const size_t parts = std::clamp<size_t>(n / least_sorted, 1, mirn3::par::workers());
  const auto border = [&](size_t p) {
    return stamps.begin() + static_cast<ptrdiff_t>(n * std::min(p, parts) / parts);
  };
  mirn3::par::run(parts, [&](size_t p) { std::sort(border(p), border(p + 1), comes_before); });
  for (size_t width = 1; width < parts; width *= 2) {
    mirn3::par::run((parts + 2 * width - 1) / (2 * width), [&](size_t pair) {
      const size_t p = pair * 2 * width;
      std::inplace_merge(border(p), border(p + width), border(p + 2 * width), comes_before);
    });
  }
}

}  // namespace

Extremes extremes(std::span<const double> y) {
  Extremes seen = scan_all(y);
  if (seen.lo > seen.hi) return {std::nan(""), std::nan("")};
  if (seen.lo == 0.0) seen.lo = *std::find(y.begin(), y.end(), 0.0);
  if (seen.hi == 0.0) seen.hi = *std::find(y.rbegin(), y.rend(), 0.0);
  return seen;
}

double zero_order_mean(std::span<const double> t, std::span<const double> y) {
  if (y.size() < 2) return 0.0;
  const double total = t.back() - t.front();
  double mean = 0.0;
  for (size_t i = 1; i < y.size(); ++i) mean += (t[i] - t[i - 1]) * y[i - 1] / total;
  return mean;
}

size_t find_first(std::span<const double> y, Relation relation, double value) {
  std::atomic<size_t> known{y.size()};
  return with_relation(relation, value, [&](auto test) {
    by_parts(y.size(), least_scanned, [&](size_t first, size_t last) {
      const size_t found = search(y, first, last, known, test);
      size_t best = known.load();
      while (found < last && found < best && !known.compare_exchange_weak(best, found)) {
      }
      return found;
    });
    return known.load();
  });
}

double time_where(std::span<const double> t, std::span<const double> y, Relation relation, double value) {
  return with_relation(relation, value, [&](auto test) {
    double total = 0.0;
    for (size_t i = 1; i < t.size(); ++i) total += interval_if(test(y[i - 1]), t[i] - t[i - 1]);
    return total;
  });
}

double time_between(std::span<const double> t, std::span<const double> y, double lo, double hi) {
  double total = 0.0;
  for (size_t i = 1; i < t.size(); ++i) {
    total += interval_if(lo < y[i], interval_if(y[i] < hi, t[i] - t[i - 1]));
  }
  return total;
}

uint64_t pattern_code(std::span<const double> t, std::span<const double> y, double t0, double t1) {
  constexpr uint64_t varying = 1;
  constexpr uint64_t two_levels = 2;
  constexpr uint64_t constant = 4;
  constexpr double beyond_all = 1e50;
  if (t.empty()) return varying;
  size_t first = 0;
  size_t last = t.size() - 1;
  if (t0 != t1) {
    first = static_cast<size_t>(std::upper_bound(t.begin(), t.end(), t0) - t.begin());
    last = static_cast<size_t>(std::upper_bound(t.begin(), t.end(), t1) - t.begin());
  }
  const Extremes seen = scan_all(y.subspan(first, last > first ? last - first : 0));
  const double spread = std::max(seen.hi, -beyond_all) - std::min(seen.lo, beyond_all);
  if (spread == 0.0) return constant;
  return spread == 1.0 ? two_levels : varying;
}

Slice slice(std::span<const double> t, double tini, double tend) {
  const auto first = std::lower_bound(t.begin(), t.end(), tini);
  const auto last = std::upper_bound(t.begin(), t.end(), tend);
  return {std::min(static_cast<size_t>(first - t.begin()), t.size() - 1),
          std::min(static_cast<size_t>(last - t.begin()), t.size() - 1)};
}

bool is_sorted_by_time(std::span<const double> t) {
  for (size_t i = 1; i < t.size(); ++i) {
    if (!(t[i - 1] <= t[i]) && is_before(t[i], t[i - 1])) return false;
  }
  return true;
}

void sort_by_time(std::span<const double> t, std::span<const double> y, std::span<double> sorted_t,
                  std::span<double> sorted_y) {
  std::vector<Stamp> stamps(t.size());
  for (size_t i = 0; i < t.size(); ++i) stamps[i] = {t[i], i};
  sort_stamps(stamps);
  mirn3::par::ranges(t.size(), least_sorted, [&](size_t first, size_t last) {
    for (size_t i = first; i < last; ++i) {
      sorted_t[i] = stamps[i].t;
      sorted_y[i] = y[stamps[i].index];
    }
  });
}

AxisFacts axis_facts(std::span<const double> axis) {
  AxisFacts facts;
  for (const AxisFacts part : by_parts(axis.size(), least_scanned, [&](size_t first, size_t last) {
         uint64_t infinite = 0;
         uint64_t nan = 0;
         uint64_t steps = 0;
         for (size_t i = first; i < last; ++i) {
           infinite += std::fabs(axis[i]) >= infinity ? 1 : 0;
           nan += axis[i] != axis[i] ? 1 : 0;
         }
         const size_t second = std::max<size_t>(first, 1);
         for (size_t i = second; i < last; ++i) steps += axis[i] > axis[i - 1] ? 1 : 0;
         return AxisFacts{infinite, nan, last <= second || steps == last - second};
       })) {
    facts.infinite += part.infinite;
    facts.nan += part.nan;
    facts.strictly_increasing = facts.strictly_increasing && part.strictly_increasing;
  }
  return facts;
}

}  // namespace mirn2::kernels
