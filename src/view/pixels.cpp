// Finds the pixels that hold a sample.
#include "view/pixels.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <mutex>

#include "runtime/par.h"

namespace kvalo_view {

namespace {

constexpr size_t least = 1 << 18;  // samples for which a thread and a mask of its own pay off
constexpr double inf = std::numeric_limits<double>::infinity();

// The cell of a value in [lo, hi] cut into `cells`; the halves keep the span of huge ranges finite.
size_t cell(double value, Range range, size_t cells) {
  if (!(range.lo < range.hi)) return 0;
  const double share = (value / 2 - range.lo / 2) / (range.hi / 2 - range.lo / 2);
  return std::min(static_cast<size_t>(share * static_cast<double>(cells)), cells - 1);
}

}  // namespace

size_t Mask::count() const {
  size_t n = 0;
  for (const uint32_t word : words) n += static_cast<size_t>(std::popcount(word));
  return n;
}

std::vector<uint32_t> Mask::pixels() const {
  std::vector<uint32_t> result;
  for (size_t i = 0; i < words.size(); ++i) {
    const size_t start = i / words_per_row() * width + i % words_per_row() * 32;
    for (uint32_t word = words[i]; word != 0; word &= word - 1) {
      result.push_back(static_cast<uint32_t>(start + static_cast<size_t>(std::countr_zero(word))));
    }
  }
  return result;
}

Mask occupied(std::span<const double> x, std::span<const double> y, Range across, Range up, size_t width,
              size_t height) {
  Mask mask(width, height);
  std::mutex joining;
  mirn3::par::ranges(x.size(), least, [&](size_t first, size_t last) {
    Mask part(width, height);
    for (size_t i = first; i < last; ++i) {
      const bool inside = x[i] >= across.lo && x[i] <= across.hi && y[i] >= up.lo && y[i] <= up.hi;
      if (inside) part.set(height - 1 - cell(y[i], up, height), cell(x[i], across, width));
    }
    const std::lock_guard lock(joining);
    for (size_t i = 0; i < mask.words.size(); ++i) mask.words[i] |= part.words[i];
  });
  return mask;
}

Box box_of(std::span<const double> x, std::span<const double> y) {
  Box box{{inf, -inf}, {inf, -inf}};
  std::mutex joining;
  mirn3::par::ranges(x.size(), least, [&](size_t first, size_t last) {
    Extremes of_x, of_y;
    for (size_t i = first; i < last; ++i) {
      if (!std::isfinite(x[i]) || !std::isfinite(y[i])) continue;
      of_x.add(x[i]);
      of_y.add(y[i]);
    }
    const std::lock_guard lock(joining);
    box.x = {std::min(box.x.lo, of_x.lo), std::max(box.x.hi, of_x.hi)};
    box.y = {std::min(box.y.lo, of_y.lo), std::max(box.y.hi, of_y.hi)};
  });
  return box;
}

std::vector<double> held_at(std::span<const double> t, std::span<const double> x, std::span<const double> y) {
  std::vector<double> result(t.size());
  size_t at = 0;
  for (size_t i = 0; i < t.size(); ++i) {
    at = upper_index(x, t[i], at);
    result[i] = at == 0 ? std::numeric_limits<double>::quiet_NaN() : y[at - 1];
  }
  return result;
}

}  // namespace kvalo_view
