#include "functions/kernels/conditioning.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>

namespace mirn2::fn::kernels {

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// 1.0 or 0.0 without a branch: recorded logic is noise to a branch predictor.
inline double logic(bool value) {
  return std::bit_cast<double>(-uint64_t{value} & std::bit_cast<uint64_t>(1.0));
}

// a or b without a branch.
inline double select(bool condition, double a, double b) {
  const uint64_t mask = -uint64_t{condition};
  return std::bit_cast<double>((std::bit_cast<uint64_t>(a) & mask) | (std::bit_cast<uint64_t>(b) & ~mask));
}

// The first index whose stamp is not below `pers`; the results before it become 0.
size_t lead_in(Axis t, double pers, Result out) {
  size_t i = 0;
  for (; i < out.size() && pers > t[i]; ++i) out[i] = 0.0;
  return i;
}

}  // namespace

void debounce(Axis t, Axis y, Persistence persistence, Result out) {
  if (out.empty()) return;
  const auto [on, off] = persistence;
  const bool holds = off > 0.0;
  out[0] = 0.0;
  // Both persistences count from the start of the run of samples that are alike.
  double start = t[0];
  bool before = y[0] != 0.0;
  for (size_t i = 1; i < out.size(); ++i) {
    const bool set = y[i] != 0.0;
    const bool edge = set != before;
    start = select(edge, t[i], start);
    const double lasted = t[i] - start;
    // The first zero has lasted for 0, even where the stamp's distance to itself is NaN.
    const bool held = (edge & holds) | (!edge & (off > lasted));
    out[i] = logic((set & (lasted >= on)) | (!set & held));
    before = set;
  }
}

void hysteresis(Axis y, Limits limits, Result out) {
  bool state = false;
  for (size_t i = 0; i < out.size(); ++i) {
    state = (state | (y[i] > limits.upper)) & !(limits.lower > y[i]);
    out[i] = logic(state);
  }
}

void clamp(Axis y, Limits limits, Result out) {
  each(out, [=](size_t i) {
    const double raised = limits.lower > y[i] ? limits.lower : y[i];
    return y[i] > limits.upper ? limits.upper : raised;
  });
}

void in_range(Axis t, Axis y, Limits limits, double pers, Result out) {
  const size_t start = lead_in(t, pers, out);
  const auto outside = [=](size_t i) { return (limits.lower > y[i]) | (y[i] > limits.upper); };
  double last = -inf;
  for (size_t i = 0; i < start; ++i) last = select(outside(i), t[i], last);
  for (size_t i = start; i < out.size(); ++i) {
    last = select(outside(i), t[i], last);
    out[i] = logic(t[i] - last > pers);
  }
}

// The look back from sample i finds a difference exactly when it gets past the start s of the run of equal
// values: when every stamp from s - 1 to i - 1 is less than `pers` before t[i]. As subtraction is
// monotonic, the earliest of them decides, whatever their order. A NaN stamp ends the look back like one
// that is infinitely long ago, and so does the start of the series.
void stale(Axis t, Axis y, double pers, Result out) {
  const size_t start = lead_in(t, pers, out);
  if (!(pers > 0.0)) {
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(start), out.end(), 1.0);
    return;
  }
  double earliest = -inf;
  const auto visit = [&](size_t i) {
    const double stamp = select(t[i - 1] == t[i - 1], t[i - 1], -inf);
    // Of two, the earlier; after a difference only the sample just before counts.
    earliest = select((y[i] != y[i - 1]) | (stamp < earliest), stamp, earliest);
  };
  for (size_t i = 1; i < start; ++i) visit(i);
  for (size_t i = start; i < out.size(); ++i) {
    if (i > 0) visit(i);
    out[i] = logic((y[i] == y[i]) & !(pers > t[i] - earliest));
  }
}

void lerp(Axis y, double a, double b, Result out) {
  if (std::isnan(a) || std::isnan(b)) {
    each(out, [](size_t) { return nan; });
    return;
  }
  each(out, [=](size_t i) {
    const double p = y[i];
    if (p == 0.0) return a;
    if (p == 1.0) return b;
    // Not every standard library lets a NaN through or treats infinity so.
    return std::isfinite(p) ? std::lerp(a, b, p) : (b - a) * p;
  });
}

Test Test::of(std::string_view comparison, double limit) {
  std::array<char, 2> name{};
  if (comparison.size() == name.size()) {
    std::transform(comparison.begin(), comparison.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
  }
  const std::string_view op(name.data(), name.size());
  if (op == "lt") return {-inf, limit > -inf ? std::nextafter(limit, -inf) : nan, false};
  if (op == "le") return {-inf, limit, false};
  if (op == "gt") return {limit < inf ? std::nextafter(limit, inf) : nan, inf, false};
  if (op == "ge") return {limit, inf, false};
  return {limit, limit, op == "ne"};
}

Selection::Selection(Axis y, Test first, Test second) : first_(first), second_(second) {
  // More parts than cores even out where the samples that are left crowd.
  constexpr size_t length = size_t{1} << 16;
  parts_.resize(y.size() / length + (y.size() % length != 0 ? 1 : 0));
  mirn3::par::ranges(parts_.size(), 1, [&](size_t from, size_t to) {
    for (size_t k = from; k < to; ++k) {
      const size_t begin = k * length;
      const size_t end = std::min(begin + length, y.size());
      uint64_t left = 0;
      for (size_t i = begin; i < end; ++i) left += keeps(y[i]);
      parts_[k] = {begin, end, 0, left};
    }
  });
  for (Part& part : parts_) {
    part.place = size_;
    size_ += part.left;
  }
}

void Selection::copy(Axis t, Axis y, Result x_out, Result y_out) const {
  mirn3::par::ranges(parts_.size(), 1, [&](size_t from, size_t to) {
    for (size_t k = from; k < to; ++k) {
      const Part& part = parts_[k];
      const size_t end = part.place + part.left;
      // Every sample is written, and the next one over it unless it is kept: no branch on the values.
      size_t place = part.place;
      for (size_t i = part.first; i < part.last && place < end; ++i) {
        x_out[place] = t[i];
        y_out[place] = y[i];
        place += keeps(y[i]);
      }
    }
  });
}

}  // namespace mirn2::fn::kernels
