// The conditioning kernels against their rules written down plainly, on inputs full of surprises.
#include "functions/kernels/conditioning.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "functions/kernels/calculus.h"
#include "functions/kernels/filters.h"
#include "functions/kernels/unpack.h"

namespace {

namespace k = mirn2::fn::kernels;
using Samples = std::vector<double>;
using Kernel = std::function<void(k::Axis t, k::Axis y, k::Result out)>;

constexpr double inf = std::numeric_limits<double>::infinity();
const double nan_value = std::nan("");

void expect_same(const Samples& got, const Samples& expected, const std::string& what) {
  ASSERT_EQ(got.size(), expected.size()) << what;
  for (size_t i = 0; i < got.size(); ++i) {
    const bool same = got[i] == expected[i] || (std::isnan(got[i]) && std::isnan(expected[i]));
    ASSERT_TRUE(same) << what << ": at " << i << " of " << got.size() << " " << got[i] << " for "
                      << expected[i];
  }
}

struct Case {
  Samples t;
  Samples y;
};

// Few different values, so that runs, equal stamps and hits of the limits are common; stamps that ascend,
// stand still, jump back, and end in NaN or infinities. Lengths go beyond one block of the kernels.
std::vector<Case> surprising_cases() {
  std::mt19937 random(301);
  const auto below = [&](unsigned n) { return random() % n; };
  const double values[] = {0, -0.0, 1, 1, 1, 2, -1, 3, nan_value, inf, -inf};
  const double odd_stamps[] = {nan_value, inf, -inf, -3, -0.0};
  std::vector<Case> cases;
  for (size_t round = 0; round < 600; ++round) {
    const size_t n = round < 8 ? round : below(round % 50 == 0 ? 2000 : 40);
    const unsigned oddity = below(3) * 4;
    const unsigned change = 1 + below(6);
    const unsigned variety = 5 + below(7);
    Case made;
    double stamp = below(3) == 0 ? -2.0 : below(2) * 3.0;
    double value = 0;
    for (size_t i = 0; i < n; ++i) {
      if (below(change) == 0) value = values[below(variety)];
      stamp += 0.5 * below(4);
      if (oddity != 0 && below(oddity) == 0) stamp -= 4;
      made.t.push_back(oddity != 0 && below(oddity * 4) == 0 ? odd_stamps[below(5)] : stamp);
      made.y.push_back(value);
    }
    cases.push_back(std::move(made));
  }
  return cases;
}

void expect_kernel_is(const std::string& what, const Kernel& kernel, const Kernel& rule) {
  static const std::vector<Case> cases = surprising_cases();
  for (const Case& one : cases) {
    Samples got(one.y.size(), 77.0);  // whatever a kernel leaves out shows
    Samples expected(one.y.size());
    kernel(one.t, one.y, got);
    if (!one.y.empty()) rule(one.t, one.y, expected);
    expect_same(got, expected, what);
    if (testing::Test::HasFatalFailure()) return;
  }
}

const double durations[] = {0, 0.5, 1, 2.5, -1, inf, -inf, nan_value};

void debounce_rule(k::Axis t, k::Axis y, double on, double off, k::Result r) {
  double t_on = t[0];
  double t_off = t[0];
  r[0] = 0;
  for (size_t i = 1; i < r.size(); ++i) {
    if (y[i] != 0) {
      if (y[i - 1] == 0) t_on = t[i];
      r[i] = t[i] - t_on >= on ? 1 : 0;
    } else if (y[i - 1] != 0) {
      t_off = t[i];
      r[i] = off > 0 ? 1 : 0;
    } else {
      r[i] = off > t[i] - t_off ? 1 : 0;
    }
  }
}

void in_range_rule(k::Axis t, k::Axis y, double lower, double upper, double pers, k::Result r) {
  double last = -inf;
  bool leading = true;
  for (size_t i = 0; i < r.size(); ++i) {
    leading = leading && pers > t[i];
    if (lower > y[i] || y[i] > upper) last = t[i];
    r[i] = !leading && t[i] - last > pers ? 1 : 0;
  }
}

void stale_rule(k::Axis t, k::Axis y, double pers, k::Result r) {
  size_t i = 0;
  for (; i < r.size() && pers > t[i]; ++i) r[i] = 0;
  for (; i < r.size(); ++i) {
    r[i] = 1;
    for (size_t j = i; pers > 0; --j) {
      if (!(y[j] == y[i])) {
        r[i] = 0;
        break;
      }
      if (j == 0 || !(pers > t[i] - t[j - 1])) break;
    }
  }
}

TEST(Conditioning, LogicFollowsItsRulesOnAnyStampsAndValues) {
  for (const double a : durations) {
    const std::string with = " with " + std::to_string(a);
    expect_kernel_is(
        "stale" + with, [=](auto t, auto y, auto out) { k::stale(t, y, a, out); },
        [=](auto t, auto y, auto out) { stale_rule(t, y, a, out); });
    expect_kernel_is(
        "in_range" + with,
        [=](auto t, auto y, auto out) {
          k::in_range(t, y, {0, 1}, a, out);
        },
        [=](auto t, auto y, auto out) { in_range_rule(t, y, 0, 1, a, out); });
    for (const double b : durations) {
      expect_kernel_is(
          "debounce" + with + ", " + std::to_string(b),
          [=](auto t, auto y, auto out) {
            k::debounce(t, y, {a, b}, out);
          },
          [=](auto t, auto y, auto out) { debounce_rule(t, y, a, b, out); });
    }
  }
  for (const k::Limits limits : {k::Limits{0, 0}, {2, 1}, {-inf, 1}, {nan_value, 1}}) {
    expect_kernel_is(
        "hysteresis", [=](auto, auto y, auto out) { k::hysteresis(y, limits, out); },
        [=](auto, auto y, auto out) {
          double state = 0;
          for (size_t i = 0; i < y.size(); ++i) {
            if (y[i] > limits.upper) state = 1;
            if (limits.lower > y[i] || (limits.lower > limits.upper && y[i] > limits.lower)) state = 0;
            out[i] = state;
          }
        });
    expect_kernel_is(
        "clamp", [=](auto, auto y, auto out) { k::clamp(y, limits, out); },
        [=](auto, auto y, auto out) {
          const auto [lower, upper] = limits;
          for (size_t i = 0; i < y.size(); ++i) out[i] = y[i] > upper ? upper : lower > y[i] ? lower : y[i];
        });
  }
}

TEST(Conditioning, DropTestsEveryComparison) {
  const std::pair<const char*, std::function<bool(double, double)>> comparisons[] = {
      {"eq", [](double v, double limit) { return v == limit; }},
      {"NE", [](double v, double limit) { return v != limit; }},
      {"lt", [](double v, double limit) { return v < limit; }},
      {"Le", [](double v, double limit) { return v <= limit; }},
      {"gT", [](double v, double limit) { return v > limit; }},
      {"ge", [](double v, double limit) { return v >= limit; }},
      {"xx", [](double v, double limit) { return v == limit; }},
      {"less", [](double v, double limit) { return v == limit; }},
      {"", [](double v, double limit) { return v == limit; }},
  };
  const double limits[] = {0, -0.0, 1, 5e-324, 1.7976931348623157e308, inf, -inf, nan_value};
  const Samples values = {0, -0.0, 5e-324, -5e-324, 1, 2, 1.7976931348623157e308, inf, -inf, nan_value, 1};
  for (const auto& [op1, first] : comparisons) {
    for (const auto& [op2, second] : {comparisons[0], comparisons[2], comparisons[5]}) {
      for (const double limit : limits) {
        // Now and then more than one part, shared out among cores.
        const size_t length = limit == 1 && second(2, 2) ? 140'001 : 1000;
        Case given;
        Case expected;
        for (size_t i = 0; i < length; ++i) {
          given.t.push_back(static_cast<double>(i));
          given.y.push_back(values[i % values.size()]);
          if (first(given.y[i], limit) || second(given.y[i], 2.0)) continue;
          expected.t.push_back(given.t[i]);
          expected.y.push_back(given.y[i]);
        }
        const k::Selection left(given.y, k::Test::of(op1, limit), k::Test::of(op2, 2.0));
        Case got{Samples(left.size()), Samples(left.size())};
        left.copy(given.t, given.y, got.t, got.y);
        const std::string what = std::string(op1) + " " + std::to_string(limit) + ", " + op2;
        expect_same(got.t, expected.t, what);
        expect_same(got.y, expected.y, what);
      }
    }
  }
}

TEST(Conditioning, LerpIsTheStandardOneWhereThatIsSettled) {
  const double ends[] = {0, -0.0, 1, 2, 5, -3, 1e308, -1e308, 0.1};
  Samples y = {0, 1, 0.5, -0.5, 0.3, 1.5, 1 - 0x1p-53, 1 + 0x1p-52, 5e-324, 1e308, -1e308};
  for (const double a : ends) {
    for (const double b : ends) {
      Samples expected;
      for (const double p : y) expected.push_back(std::lerp(a, b, p));
      Samples got(y.size());
      k::lerp(y, a, b, got);
      expect_same(got, expected, std::to_string(a) + " to " + std::to_string(b));
      Samples odd(3);
      k::lerp(Samples{nan_value, inf, -inf}, a, b, odd);
      expect_same(odd, {nan_value, (b - a) * inf, (b - a) * -inf}, "odd parameters");
    }
  }
  Samples got(2);
  k::lerp(Samples{0, 0.5}, nan_value, 1, got);
  expect_same(got, {nan_value, nan_value}, "NaN end");
  k::lerp(Samples{0, 1}, 3, inf, got);
  expect_same(got, {3, inf}, "infinite end");
}

TEST(Unpack, RawWord) {
  const std::pair<double, uint64_t> words[] = {
      {0.0, 0},
      {-0.9, 0},
      {7.999, 7},
      {-1.5, ~uint64_t{0}},
      {0x1p52, 1ull << 52},
      {0x1p63, 1ull << 63},
      {-0x1p63, 1ull << 63},
      {0x1p63 + 2048, (1ull << 63) + 2048},
      {0x1.fffffffffffffp63, ~2047ull},
      {0x1p64, 1ull << 63},
      {-0x1.8p63, 1ull << 63},
      {inf, 1ull << 63},
      {-inf, 1ull << 63},
      {nan_value, 1ull << 63},
  };
  for (const auto& [value, word] : words) EXPECT_EQ(k::raw_word(value), word) << value;
}

double unpacked(double value, uint64_t msb, uint64_t lsb, k::Coding coding, double gain, double bias) {
  const uint64_t raw = k::raw_word(value);
  const auto bit = [](uint64_t n) { return uint64_t{1} << (n % 64); };
  const uint64_t all = (raw & (bit(msb + 1) - 1)) >> (lsb % 64);
  const uint64_t below = (raw & (bit(msb) - 1)) >> (lsb % 64);
  switch (coding) {
    case k::Coding::unsigned_binary:
      return static_cast<double>(all) * gain + bias;
    case k::Coding::sign_magnitude:
      return (static_cast<double>(below) * gain + bias) * ((raw & bit(msb)) != 0 ? -1 : 1);
    case k::Coding::twos_complement:
      return static_cast<double>(static_cast<int64_t>(below - ((raw & bit(msb)) >> (lsb % 64)))) * gain +
             bias;
    case k::Coding::bcd:
      break;
  }
  uint64_t sum = 0;
  uint64_t weight = 1;
  for (int digit = 0; digit < 16; ++digit, weight *= 10) sum += ((all >> (4 * digit)) & 15) * weight;
  return static_cast<double>(sum) * gain + bias;
}

TEST(Unpack, EveryFieldOfEveryWord) {
  std::mt19937_64 random(301);
  Samples y = {0,      1,      -1,     200,     0x85,   0x1234, -0.5,      -200.7,
               0x1p51, 0x1p52, 0x1p53, -0x1p52, 0x1p63, 0x1p64, nan_value, inf};
  for (int i = 0; i < 41; ++i)
    y.push_back(static_cast<double>(random() >> (i + 5)) * (i % 3 == 0 ? -1.25 : 1.25));
  for (const auto coding :
       {k::Coding::unsigned_binary, k::Coding::sign_magnitude, k::Coding::twos_complement, k::Coding::bcd}) {
    for (uint64_t msb = 0; msb < 70; ++msb) {
      for (uint64_t lsb = 0; lsb <= msb; lsb += 1 + lsb / 3) {
        Samples expected;
        for (const double value : y) expected.push_back(unpacked(value, msb, lsb, coding, 0.5, 3));
        Samples got(y.size());
        k::unpack(y, {msb, lsb, 0.5, 3}, coding, got);
        expect_same(got, expected, std::to_string(msb) + " to " + std::to_string(lsb));
      }
    }
  }
}

// Long enough to be shared out among cores; the rules know nothing of that.
TEST(Calculus, SameBitsAsPlainLoopsHoweverLong) {
  struct Row {
    const char* name;
    Kernel kernel;
    std::function<double(k::Axis t, k::Axis y, k::Axis r, size_t i)> step;
    std::function<double(double y0)> first;
  };
  const auto zero = [](double) { return 0.0; };
  const auto same = [](double y0) { return y0; };
  const double low = 0.1 / (0.1 + 0.3);
  const double high = 0.3 / (0.1 + 0.3);
  const Row rows[] = {
      {"derivative", k::derivative,
       [](auto t, auto y, auto, size_t i) { return (y[i] - y[i - 1]) / (t[i] - t[i - 1]); }, zero},
      {"integral", k::integral,
       [](auto t, auto y, auto r, size_t i) {
         return r[i - 1] + (y[i - 1] + y[i]) * (t[i] - t[i - 1]) * 0.5;
       },
       zero},
      {"diff", k::difference, [](auto, auto y, auto, size_t i) { return y[i] - y[i - 1]; }, same},
      {"accumulate", k::accumulate, [](auto, auto y, auto r, size_t i) { return r[i - 1] + y[i]; }, same},
      {"period", k::period, [](auto t, auto, auto, size_t i) { return t[i] - t[i - 1]; }, zero},
      {"frequency", k::frequency, [](auto t, auto, auto, size_t i) { return 1 / (t[i] - t[i - 1]); }, zero},
      {"lowpass",
       [](auto, auto y, auto out) {
         k::lowpass(y, {0.1, 0.3}, out);
       },
       [=](auto, auto y, auto r, size_t i) { return (1 - low) * r[i - 1] + low * y[i]; }, same},
      {"highpass",
       [](auto, auto y, auto out) {
         k::highpass(y, {0.1, 0.3}, out);
       },
       [=](auto, auto y, auto r, size_t i) { return high * (r[i - 1] + y[i] - y[i - 1]); }, same},
  };
  std::mt19937 random(301);
  std::normal_distribution<double> noise;
  Case sample;
  for (size_t i = 0; i < 300'001; ++i) {
    sample.t.push_back(static_cast<double>(i) * 0.1 + 0.02 * noise(random));
    sample.y.push_back(noise(random));
  }
  sample.t[70'000] = sample.t[69'999];
  for (const Row& row : rows) {
    for (const size_t n : {size_t{0}, size_t{1}, size_t{2}, size_t{9}, sample.y.size()}) {
      const k::Axis t = k::Axis(sample.t).first(n);
      const k::Axis y = k::Axis(sample.y).first(n);
      Samples got(n, 77.0);
      Samples expected(n);
      row.kernel(t, y, got);
      for (size_t i = 0; i < n; ++i) expected[i] = i == 0 ? row.first(y[0]) : row.step(t, y, expected, i);
      expect_same(got, expected, row.name);
    }
  }
}

}  // namespace
