// Builds the pyramid and asks it.
#include "view/pyramid.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "runtime/par.h"

namespace kvalo_view {

namespace {

constexpr size_t least_blocks = 4096;  // blocks for which a thread pays off

// Extremes of values, one by one.
Extremes careful(std::span<const double> values) {
  Extremes result;
  for (const double value : values) result.add(value);
  return result;
}

// Two doubles that the processor treats at once; what the compiler makes of plain loops here is half as fast.
using Pair = double __attribute__((vector_size(16)));

Pair pair_at(const double* values) {
  Pair pair;
  std::memcpy(&pair, values, sizeof pair);
  return pair;
}

// The same for a whole block: fast where all are finite. v - v is 0 for finite values and NaN otherwise.
Extremes of_block(const double* values) {
  Pair lo = pair_at(values), hi = lo, odd = lo - lo;
  for (size_t i = 2; i < Pyramid::base; i += 2) {
    const Pair pair = pair_at(values + i);
    lo = pair < lo ? pair : lo;
    hi = pair > hi ? pair : hi;
    odd += pair - pair;
  }
  if (odd[0] + odd[1] != 0.0) return careful({values, Pyramid::base});
  return {std::min(lo[0], lo[1]), std::max(hi[0], hi[1]), 0};
}

// Whether each stamp is at least the one before it. Not short-circuit, so that it becomes vector code.
bool in_order(std::span<const double> x) {
  unsigned char fine = 1;
  for (size_t i = 1; i < x.size(); ++i) fine &= static_cast<unsigned char>(x[i] >= x[i - 1]);
  return fine != 0;
}

template <typename Before>
size_t gallop(std::span<const double> x, size_t hint, const Before& before) {
  const size_t n = x.size();
  size_t lo = 0;
  size_t hi = n;
  size_t at = std::min(hint, n);
  if (at < n && before(x[at])) {
    lo = at + 1;
    for (size_t step = 1; at < n && n - at > step; step *= 2) {
      at += step;
      if (!before(x[at])) {
        hi = at;
        break;
      }
      lo = at + 1;
    }
  } else {
    hi = at;
    for (size_t step = 1; at >= step; step *= 2) {
      at -= step;
      if (before(x[at])) {
        lo = at + 1;
        break;
      }
      hi = at;
    }
  }
  while (lo < hi) {
    const size_t middle = lo + (hi - lo) / 2;
    if (before(x[middle])) {
      lo = middle + 1;
    } else {
      hi = middle;
    }
  }
  return lo;
}

}  // namespace

void Extremes::add(double value) {
  if (std::isfinite(value)) {
    lo = std::min(lo, value);
    hi = std::max(hi, value);
  } else {
    marks |= std::isnan(value) ? mark_nan : value > 0 ? mark_up : mark_down;
  }
}

void Extremes::add(const Extremes& other) {
  lo = std::min(lo, other.lo);
  hi = std::max(hi, other.hi);
  marks |= other.marks;
}

void Pyramid::Level::resize(size_t blocks) {
  ends.resize(blocks);
  marks.resize(blocks);
}

void Pyramid::Level::set(size_t block, const Extremes& value) {
  ends[block] = {value.lo, value.hi};
  marks[block] = value.marks;
}

Pyramid::Pyramid(std::span<const double> x, std::span<const double> y, const Pyramid& head) : y_(y) {
  // Only whole blocks: what is left at the end is looked at sample by sample.
  levels_.emplace_back();
  if (!head.levels_.empty()) levels_[0] = head.levels_[0];
  const size_t kept = levels_[0].size();
  levels_[0].resize(y.size() / base);
  std::atomic<bool> ascends{head.ascends_ && in_order(x.last(y.size() % base)) &&
                            !(y.size() == 1 && std::isnan(x[0]))};
  mirn3::par::ranges(levels_[0].size() - kept, least_blocks, [&](size_t first, size_t last) {
    bool fine = true;
    for (size_t block = kept + first; block < kept + last; ++block) {
      const size_t at = block * base;
      levels_[0].set(block, of_block(y.data() + at));
      fine = fine && in_order(x.subspan(at, std::min(base + 1, y.size() - at)));  // and the next one's first
    }
    if (!fine) ascends = false;
  });
  ascends_ = ascends;

  while (levels_.back().size() > fan_out) {
    const size_t count = levels_.back().size() / fan_out;
    levels_.emplace_back().resize(count);
    const Level& below = levels_[levels_.size() - 2];
    for (size_t block = 0; block < count; ++block) {
      Extremes sum = below.at(block * fan_out);
      for (size_t k = 1; k < fan_out; ++k) sum.add(below.at(block * fan_out + k));
      levels_.back().set(block, sum);
    }
  }
}

Extremes Pyramid::samples(size_t first, size_t last) const {
  return careful(y_.subspan(first, last - first));
}

Extremes Pyramid::range(size_t first, size_t last) const {
  if (last - first < 2 * base) return samples(first, last);
  size_t a = (first + base - 1) / base;  // whole blocks [a, b) of the current level
  size_t b = last / base;
  Extremes result = samples(first, a * base);
  result.add(samples(b * base, last));
  for (const Level& level : levels_) {
    const bool top = &level == &levels_.back();
    while (a < b && (top || a % fan_out != 0)) result.add(level.at(a++));
    while (a < b && b % fan_out != 0) result.add(level.at(--b));
    if (a == b) break;
    a /= fan_out;
    b /= fan_out;
  }
  return result;
}

size_t Pyramid::memory() const {
  size_t bytes = 0;
  for (const Level& level : levels_) {
    bytes += level.ends.capacity() * sizeof(Level::Ends) + level.marks.capacity();
  }
  return bytes;
}

size_t lower_index(std::span<const double> x, double t, size_t hint) {
  return gallop(x, hint, [t](double stamp) { return stamp < t; });
}

size_t upper_index(std::span<const double> x, double t, size_t hint) {
  return gallop(x, hint, [t](double stamp) { return stamp <= t; });
}

}  // namespace kvalo_view
