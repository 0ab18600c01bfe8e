// Conditions the values of one series: memory, limits, selection, interpolation.
#include "kernels/conditioning.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "kernels/lanes.h"

namespace mirn2::kernels {

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// Recorded logic is noise to a branch predictor, so conditions become masks: work goes in blocks of which
// only one loop, with little in it, takes the samples one by one.
constexpr size_t block = 512;

struct Block {
  alignas(64) std::array<uint64_t, block> masks;
  alignas(64) std::array<double, block> values;
};

// Calls finish(i, count, held) for every element (see in_lanes), where held is value(j) of the last j <= i
// with renew(j), or `held` before the first. renew(i, count) and value(i, count) give Masks and Lanes.
template <typename Renew, typename Value, typename Finish>
void with_held(size_t n, double held, Renew renew, Value value, Finish finish) {
  Block work;
  uint64_t last = std::bit_cast<uint64_t>(held);
  for (size_t begin = 0; begin < n; begin += block) {
    const size_t length = std::min(block, n - begin);
    in_lanes(length, [&](size_t k, auto count) {
      const Masks renewed = renew(begin + k, count);
      store(&work.values[k], renewed & bits(value(begin + k, count)), count);
      std::memcpy(&work.masks[k], &renewed, count * sizeof(uint64_t));
    });
    for (size_t k = 0; k < length; ++k) {
      last = (last & ~work.masks[k]) | std::bit_cast<uint64_t>(work.values[k]);
      work.values[k] = std::bit_cast<double>(last);
    }
    in_lanes(length, [&](size_t k, auto count) { finish(begin + k, count, load(&work.values[k], count)); });
  }
}

// Numbers that are not NaN as integers of the same order, and back.
inline Masks ordered(Lanes value) {
  const Lanes one_zero = value + lanes(0.0);  // no -0, whose bits would be out of order
  return bits(one_zero) ^ (bits(one_zero < lanes(0.0)) & masks(~uint64_t{0} >> 1));
}
inline double from_ordered(int64_t key) {
  return std::bit_cast<double>(key ^ static_cast<int64_t>(static_cast<uint64_t>(key >> 63) >> 1));
}

// The look back from sample i finds a difference exactly when it gets past the start s of the run of equal
// values: when every stamp from s - 1 to i - 1 is less than `pers` before t[i]. As subtraction is
// monotonic, the earliest of them decides, whatever their order. A NaN stamp ends the look back like one
// that is infinitely long ago, and so does the start of the series.
void look_back(Axis t, Axis y, double pers, Result out) {
  if (out.empty()) return;
  Block work;
  constexpr int64_t latest = std::numeric_limits<int64_t>::max();
  int64_t earliest = std::bit_cast<std::array<int64_t, lane_count>>(ordered(lanes(-inf)))[0];
  out[0] = y[0] == y[0] ? 1.0 : 0.0;
  for (size_t begin = 1; begin < out.size(); begin += block) {
    const size_t length = std::min(block, out.size() - begin);
    in_lanes(length, [&](size_t k, auto count) {
      const Lanes before = load(&t[begin + k - 1], count);
      const Lanes stamp = select(bits(before == before), before, lanes(-inf));
      const Masks differs = bits(load(&y[begin + k], count) != load(&y[begin + k - 1], count));
      store(&work.values[k], ordered(stamp), count);
      std::memcpy(&work.masks[k], &differs, count * sizeof(uint64_t));
    });
    for (size_t k = 0; k < length; ++k) {
      // After a difference only the sample just before counts.
      const auto differs = static_cast<int64_t>(work.masks[k]);
      earliest = std::min((earliest & ~differs) | (latest & differs), std::bit_cast<int64_t>(work.values[k]));
      work.values[k] = from_ordered(earliest);
    }
    in_lanes(length, [&](size_t k, auto count) {
      const Lanes value = load(&y[begin + k], count);
      const Lanes distance = load(&t[begin + k], count) - load(&work.values[k], count);
      store(&out[begin + k], logic(bits(value == value) & ~bits(lanes(pers) > distance)), count);
    });
  }
}

// The results before the first stamp that is not below `pers` become 0.
void clear_lead_in(Axis t, double pers, Result out) {
  for (size_t i = 0; i < out.size() && pers > t[i]; ++i) out[i] = 0.0;
}

}  // namespace

void debounce(Axis t, Axis y, Persistence persistence, Result out) {
  if (out.empty()) return;
  const auto [on, off] = persistence;
  const auto is_set = [=](size_t i, auto count) { return bits(load(&y[i], count) != lanes(0.0)); };
  // Both persistences count from the start of the run of samples that are alike.
  const auto starts = [=](size_t i, auto count) { return is_set(i + 1, count) ^ is_set(i, count); };
  const auto finish = [=, on = on, off = off](size_t i, auto count, Lanes start) {
    const Masks now = is_set(i + 1, count);
    // The first zero has lasted for 0, even where the stamp's distance to itself is NaN.
    const Masks falls = ~now & is_set(i, count);
    const Lanes lasted = numbers(bits(load(&t[i + 1], count) - start) & ~falls);
    const Masks result = (now & bits(lasted >= lanes(on))) | (~now & bits(lanes(off) > lasted));
    store(&out[i + 1], logic(result), count);
  };
  const auto stamp = [=](size_t i, auto count) { return load(&t[i + 1], count); };
  out[0] = 0.0;
  with_held(out.size() - 1, t[0], starts, stamp, finish);
}

void hysteresis(Axis y, Limits limits, Result out) {
  const Masks are_crossed = masks(limits.lower > limits.upper ? ~uint64_t{0} : 0);
  const auto is_low = [=](size_t i, auto count) {
    const Lanes value = load(&y[i], count);
    const Lanes lower = lanes(limits.lower);
    return bits(lower > value) | (bits(value > lower) & are_crossed);
  };
  const auto decides = [=](size_t i, auto count) {
    return is_low(i, count) | bits(load(&y[i], count) > lanes(limits.upper));
  };
  const auto decision = [=](size_t i, auto count) { return logic(~is_low(i, count)); };
  const auto finish = [=](size_t i, auto count, Lanes state) { store(&out[i], state, count); };
  with_held(out.size(), 0.0, decides, decision, finish);
}

void clamp(Axis y, Limits limits, Result out) {
  each(out, [=](size_t i) {
    const double raised = limits.lower > y[i] ? limits.lower : y[i];
    return y[i] > limits.upper ? limits.upper : raised;
  });
}

void in_range(Axis t, Axis y, Limits limits, double pers, Result out) {
  const auto is_outside = [=](size_t i, auto count) {
    const Lanes value = load(&y[i], count);
    return bits(lanes(limits.lower) > value) | bits(value > lanes(limits.upper));
  };
  const auto stamp = [=](size_t i, auto count) { return load(&t[i], count); };
  const auto finish = [=](size_t i, auto count, Lanes last) {
    store(&out[i], logic(bits(stamp(i, count) - last > lanes(pers))), count);
  };
  with_held(out.size(), -inf, is_outside, stamp, finish);
  clear_lead_in(t, pers, out);
}

void stale(Axis t, Axis y, double pers, Result out) {
  if (pers > 0.0) {
    look_back(t, y, pers, out);
  } else {
    std::fill(out.begin(), out.end(), 1.0);
  }
  clear_lead_in(t, pers, out);
}

// The standard library's formula, which treats NaN and infinite parameters in no agreed way, without its
// branches. Between a and b of one sign it stays exact at 1 and monotonic there by being held on b's side.
void lerp(Axis y, double a, double b, Result out) {
  const double way = b - a;
  const bool opposite = (a <= 0 && b >= 0) || (a >= 0 && b <= 0);
  const Masks rises = masks(b > a ? ~uint64_t{0} : 0);
  const bool has_nan = std::isnan(a) || std::isnan(b);
  const auto at = [=](Lanes p, Lanes between) {
    between = select(bits(p == lanes(0.0)), lanes(a), between);
    between = select(bits(p == lanes(1.0)), lanes(b), between);
    // The difference of a number with itself is 0, of an infinity or NaN it is NaN.
    return select(bits(p - p == lanes(0.0)), between, lanes(way) * p);
  };
  if (has_nan) {
    map(y, out, [](Lanes) { return lanes(nan); });
  } else if (opposite) {
    map(y, out, [=](Lanes p) { return at(p, p * lanes(b) + (lanes(1.0) - p) * lanes(a)); });
  } else {
    map(y, out, [=](Lanes p) {
      const Lanes x = lanes(a) + p * lanes(way);
      const Lanes above = select(bits(lanes(b) < x), x, lanes(b));
      const Lanes below = select(bits(lanes(b) > x), x, lanes(b));
      return at(p, select(bits(p > lanes(1.0)) ^ rises, below, above));
    });
  }
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

namespace {

// All bits where the test is true.
Masks passes(const Test& test, Lanes value) {
  const Masks inside = bits(lanes(test.lowest) <= value) & bits(value <= lanes(test.highest));
  return test.inverted ? ~inside : inside;
}

// 1 for every sample that is left, else 0.
void mark_left(const Test& first, const Test& second, Axis y, uint64_t* left) {
  in_lanes(y.size(), [=](size_t i, auto count) {
    const Lanes value = load(&y[i], count);
    const Masks marks = ~(passes(first, value) | passes(second, value)) & masks(1);
    std::memcpy(&left[i], &marks, count * sizeof(uint64_t));
  });
}

}  // namespace

Selection::Selection(Axis y, Test first, Test second) : first_(first), second_(second) {
  // More parts than cores even out where the samples that are left crowd.
  constexpr size_t part_length = size_t{1} << 16;
  parts_.resize(y.size() / part_length + (y.size() % part_length != 0 ? 1 : 0));
  mirn3::par::ranges(parts_.size(), 1, [&](size_t from, size_t to) {
    std::array<uint64_t, block> marks;
    for (size_t k = from; k < to; ++k) {
      Part& part = parts_[k];
      part = {k * part_length, std::min((k + 1) * part_length, y.size()), 0, 0};
      for (size_t i = part.first; i < part.last; i += block) {
        const size_t length = std::min(block, part.last - i);
        mark_left(first_, second_, y.subspan(i, length), marks.data());
        part.left += std::accumulate(marks.begin(), marks.begin() + length, uint64_t{0});
      }
    }
  });
  for (Part& part : parts_) {
    part.place = size_;
    size_ += part.left;
  }
}

void Selection::copy(Axis t, Axis y, Result x_out, Result y_out) const {
  mirn3::par::ranges(parts_.size(), 1, [&](size_t from, size_t to) {
    std::array<uint64_t, block> marks;
    for (size_t k = from; k < to; ++k) {
      const Part& part = parts_[k];
      const size_t end = part.place + part.left;
      size_t place = part.place;
      for (size_t i = part.first; i < part.last; i += block) {
        const size_t length = std::min(block, part.last - i);
        mark_left(first_, second_, y.subspan(i, length), marks.data());
        // Every sample is written, and the next one over it unless it is left: no jump on the values.
        for (size_t j = 0; j < length && place < end; ++j) {
          x_out[place] = t[i + j];
          y_out[place] = y[i + j];
          place += marks[j];
        }
      }
    }
  });
}

}  // namespace mirn2::kernels
