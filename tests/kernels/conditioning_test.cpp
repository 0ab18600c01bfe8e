// The conditioning kernels against their rules written down plainly, on inputs full of surprises.
#include "kernels/conditioning.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kernels/bit_field.h"
#include "kernels/calculus.h"
#include "kernels/filters.h"

namespace {

namespace k = mirn2::kernels;
using Samples = std::vector<double>;

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
  Samples t, y;
};

// Few different values, so that runs, equal stamps and hits of the limits are common; stamps that ascend,
// stand still, jump back, and end in NaN or infinities. Lengths go beyond one block of the kernels.
std::vector<Case> surprising_cases() {
  std::mt19937 random(301);
  const auto below = [&](unsigned n) { return random() % n; };
  const double values[] = {0, -0.0, 1, 1, 1, 2, -1, 3, nan_value, inf, -inf};
  const double odd_stamps[] = {nan_value, inf, -inf, -3, -0.0};
  std::vector<Case> cases(600);
  for (size_t round = 0; round < cases.size(); ++round) {
    const size_t n = round < 8 ? round : below(round % 50 == 0 ? 2000 : 40);
    const unsigned oddity = below(3) * 4;
    const unsigned change = 1 + below(6);
    const unsigned variety = 5 + below(7);
    double stamp = below(3) == 0 ? -2.0 : below(2) * 3.0;
    double value = 0;
    for (size_t i = 0; i < n; ++i) {
      if (below(change) == 0) value = values[below(variety)];
      stamp += 0.5 * below(4);
      if (oddity != 0 && below(oddity) == 0) stamp -= 4;
      cases[round].t.push_back(oddity != 0 && below(oddity * 4) == 0 ? odd_stamps[below(5)] : stamp);
      cases[round].y.push_back(value);
    }
  }
  return cases;
}

// Every function with parameters a and b, and its rule, which is never given an empty series.
using Logic = void (*)(k::Axis t, k::Axis y, double a, double b, k::Result out);

void stale(k::Axis t, k::Axis y, double, double b, k::Result r) { k::stale(t, y, b, r); }
void in_range(k::Axis t, k::Axis y, double a, double b, k::Result r) { k::in_range(t, y, {0, a}, b, r); }
void debounce(k::Axis t, k::Axis y, double a, double b, k::Result r) { k::debounce(t, y, {a, b}, r); }
void hysteresis(k::Axis, k::Axis y, double a, double b, k::Result r) { k::hysteresis(y, {b, a}, r); }
void clamp(k::Axis, k::Axis y, double a, double b, k::Result r) { k::clamp(y, {b, a}, r); }

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

void in_range_rule(k::Axis t, k::Axis y, double upper, double pers, k::Result r) {
  double last = -inf;
  bool leading = true;
  for (size_t i = 0; i < r.size(); ++i) {
    leading = leading && pers > t[i];
    if (0 > y[i] || y[i] > upper) last = t[i];
    r[i] = !leading && t[i] - last > pers ? 1 : 0;
  }
}

void stale_rule(k::Axis t, k::Axis y, double, double pers, k::Result r) {
  bool leading = true;
  for (size_t i = 0; i < r.size(); ++i) {
    leading = leading && pers > t[i];
    bool same = true;
    for (size_t j = i; pers > 0 && same; --j) {
      same = y[j] == y[i];
      if (j == 0 || !(pers > t[i] - t[j - 1])) break;
    }
    r[i] = !leading && same ? 1 : 0;
  }
}

void hysteresis_rule(k::Axis, k::Axis y, double upper, double lower, k::Result r) {
  double state = 0;
  for (size_t i = 0; i < r.size(); ++i) {
    if (y[i] > upper) state = 1;
    if (lower > y[i] || (lower > upper && y[i] > lower)) state = 0;
    r[i] = state;
  }
}

void clamp_rule(k::Axis, k::Axis y, double upper, double lower, k::Result r) {
  for (size_t i = 0; i < r.size(); ++i) r[i] = y[i] > upper ? upper : lower > y[i] ? lower : y[i];
}

TEST(Conditioning, LogicFollowsItsRulesOnAnyStampsAndValues) {
  const std::tuple<std::string, Logic, Logic> functions[] = {{"stale ", stale, stale_rule},
                                                             {"in_range ", in_range, in_range_rule},
                                                             {"debounce ", debounce, debounce_rule},
                                                             {"hysteresis ", hysteresis, hysteresis_rule},
                                                             {"clamp ", clamp, clamp_rule}};
  const std::vector<Case> cases = surprising_cases();
  const double parameters[] = {0, 0.5, 1, 2.5, -1, inf, -inf, nan_value};
  for (const auto& [name, kernel, rule] : functions) {
    for (const double a : parameters) {
      for (const double b : parameters) {
        for (const auto& [t, y] : cases) {
          Samples got(y.size(), 77.0);  // whatever a kernel leaves out shows
          Samples expected(y.size());
          kernel(t, y, a, b, got);
          if (!y.empty()) rule(t, y, a, b, expected);
          expect_same(got, expected, name + std::to_string(a) + " " + std::to_string(b));
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

TEST(Conditioning, DropTestsEveryComparison) {
  using Compare = std::function<bool(double, double)>;
  const std::pair<std::string, Compare> comparisons[] = {
      {"eq", std::equal_to()},   {"NE", std::not_equal_to()}, {"lt", std::less()},
      {"Le", std::less_equal()}, {"gT", std::greater()},      {"ge", std::greater_equal()},
      {"xx", std::equal_to()},   {"less", std::equal_to()},   {"", std::equal_to()},
  };
  const double limits[] = {0, -0.0, 1, 5e-324, 1.7976931348623157e308, inf, -inf, nan_value};
  const Samples values = {0, -0.0, 5e-324, -5e-324, 1, 2, 1.7976931348623157e308, inf, -inf, nan_value, 1};
  for (const auto& [op1, first] : comparisons) {
    for (const auto& [op2, second] : {comparisons[0], comparisons[2], comparisons[5]}) {
      for (const double limit : limits) {
        // Now and then more than one part, shared out among cores.
        const size_t length = limit == 1 && second(2, 2) ? 140'001 : 1000;
        Case given, expected;
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
        const std::string what = op1 + " " + std::to_string(limit) + ", " + op2;
        expect_same(got.t, expected.t, what);
        expect_same(got.y, expected.y, what);
      }
    }
  }
}

TEST(Conditioning, LerpIsTheStandardOneWhereThatIsSettled) {
  const double ends[] = {0, -0.0, 1, 2, 5, -3, 1e308, -1e308, 0.1};
  Samples y = {0, 1, 0.5, -0.5, 0.3, 1.5, 1 - 0x1p-53, 1 + 0x1p-52, 5e-324, 1e308, -1e308};
  const auto check = [](const Samples& parameters, double a, double b, const Samples& expected) {
    Samples got(parameters.size());
    k::lerp(parameters, a, b, got);
    expect_same(got, expected, std::to_string(a) + " to " + std::to_string(b));
  };
  for (const double a : ends) {
    for (const double b : ends) {
      Samples expected;
      for (const double p : y) expected.push_back(std::lerp(a, b, p));
      check(y, a, b, expected);
      check({nan_value, inf, -inf}, a, b, {nan_value, (b - a) * inf, (b - a) * -inf});
    }
  }
  check({0, 0.5}, nan_value, 1, {nan_value, nan_value});
  check({0, 1}, 3, inf, {3, inf});
}

TEST(Unpack, RawWord) {
  constexpr uint64_t top = uint64_t{1} << 63;
  for (const auto& [value, word] : {std::pair{0.0, uint64_t{0}},
                                    {-0.9, 0},
                                    {7.999, 7},
                                    {-1.5, ~uint64_t{0}},
                                    {0x1p52, 1ull << 52},
                                    {0x1p63 + 2048, top + 2048},
                                    {0x1.fffffffffffffp63, ~2047ull}}) {
    EXPECT_EQ(k::raw_word(value), word) << value;
  }
  for (const double value : {0x1p63, -0x1p63, 0x1p64, -0x1.8p63, inf, -inf, nan_value}) {
    EXPECT_EQ(k::raw_word(value), top) << value;
  }
}

double unpacked(double value, uint64_t msb, uint64_t lsb, k::Coding coding, double gain, double bias) {
  const uint64_t raw = k::raw_word(value);
  const auto bit = [](uint64_t n) { return uint64_t{1} << (n % 64); };
  const uint64_t all = (raw & (bit(msb + 1) - 1)) >> (lsb % 64);
  const uint64_t below = (raw & (bit(msb) - 1)) >> (lsb % 64);
  const uint64_t sign = raw & bit(msb);
  if (coding == k::Coding::unsigned_binary) return static_cast<double>(all) * gain + bias;
  if (coding == k::Coding::sign_magnitude) {
    return (static_cast<double>(below) * gain + bias) * (sign != 0 ? -1 : 1);
  }
  if (coding == k::Coding::twos_complement) {
    return static_cast<double>(static_cast<int64_t>(below - (sign >> (lsb % 64)))) * gain + bias;
  }
  uint64_t sum = 0;
  for (int shift = 60; shift >= 0; shift -= 4) sum = sum * 10 + ((all >> shift) & 15);
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
        k::decode_bits(y, {msb, lsb, 0.5, 3}, coding, got);
        expect_same(got, expected, std::to_string(msb) + " to " + std::to_string(lsb));
      }
    }
  }
}

// Long enough to be shared out among cores; the rules know nothing of that.
TEST(Calculus, SameBitsAsPlainLoopsHoweverLong) {
  constexpr k::FirstOrder filter{0.1, 0.3};
  constexpr double low = 0.1 / (0.1 + 0.3), high = 0.3 / (0.1 + 0.3);
  using Kernel = std::function<void(k::Axis t, k::Axis y, k::Result out)>;
  using Step = std::function<double(k::Axis t, k::Axis y, k::Axis r, size_t i)>;
  const struct {
    const char* name;
    bool starts_with_y;  // or with zero
    Kernel kernel;
    Step step;
  } rows[] = {
      {"derivative", false, k::derivative,
       [](auto t, auto y, auto, size_t i) { return (y[i] - y[i - 1]) / (t[i] - t[i - 1]); }},
      {"integral", false, k::integral,
       [](auto t, auto y, auto r, size_t i) {
         return r[i - 1] + (y[i - 1] + y[i]) * (t[i] - t[i - 1]) * 0.5;
       }},
      {"diff", true, k::difference, [](auto, auto y, auto, size_t i) { return y[i] - y[i - 1]; }},
      {"accumulate", true, k::accumulate, [](auto, auto y, auto r, size_t i) { return r[i - 1] + y[i]; }},
      {"period", false, k::period, [](auto t, auto, auto, size_t i) { return t[i] - t[i - 1]; }},
      {"frequency", false, k::frequency, [](auto t, auto, auto, size_t i) { return 1 / (t[i] - t[i - 1]); }},
      {"lowpass", true, [](auto, auto y, auto out) { k::lowpass(y, filter, out); },
       [](auto, auto y, auto r, size_t i) { return (1 - low) * r[i - 1] + low * y[i]; }},
      {"highpass", true, [](auto, auto y, auto out) { k::highpass(y, filter, out); },
       [](auto, auto y, auto r, size_t i) { return high * (r[i - 1] + y[i] - y[i - 1]); }},
  };
  std::mt19937 random(301);
  std::normal_distribution<double> noise;
  Case sample;
  for (size_t i = 0; i < 300'001; ++i) {
    sample.t.push_back(static_cast<double>(i) * 0.1 + 0.02 * noise(random));
    sample.y.push_back(noise(random));
  }
  sample.t[70'000] = sample.t[69'999];
  for (const auto& row : rows) {
    for (const size_t n : {size_t{0}, size_t{1}, size_t{2}, size_t{9}, sample.y.size()}) {
      const k::Axis t = k::Axis(sample.t).first(n);
      const k::Axis y = k::Axis(sample.y).first(n);
      Samples got(n, 77.0);
      Samples expected(n);
      row.kernel(t, y, got);
      if (n > 0 && row.starts_with_y) expected[0] = y[0];
      for (size_t i = 1; i < n; ++i) expected[i] = row.step(t, y, expected, i);
      expect_same(got, expected, row.name);
    }
  }
}

}  // namespace
