// The search for precursors against the rule taken word for word, with a binary search each time.
#include "kernels/insight.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

namespace {

using namespace mirn2::kernels;
using Series = std::vector<double>;

constexpr double inf = std::numeric_limits<double>::infinity();

// (lead, threshold, falls), so that findings can be compared and printed.
using Findings = std::vector<std::tuple<double, double, bool>>;

Findings plain(const std::vector<Precursor>& precursors) {
  Findings findings;
  for (const Precursor& p : precursors) findings.emplace_back(p.lead, p.threshold, p.falls);
  return findings;
}

Findings by_the_rule(const Series& s, const Series& v, const Series& e, double window) {
  Findings findings;
  const auto limited = [&](double time) {
    const auto i = std::lower_bound(s.begin(), s.end(), time) - s.begin();
    return std::min(static_cast<size_t>(i), s.size() - 1);
  };
  for (size_t k = 1; !s.empty(); ++k) {
    const size_t i0 = limited(e[0]);
    if (i0 < k) return findings;
    const size_t j = i0 - k;
    const double d = e[0] - s[j];
    if (d >= window) return findings;
    if (v[j] == v[j + 1] || std::isnan(v[j]) || std::isnan(v[j + 1])) continue;
    const bool falls = v[j] > v[j + 1];
    const double h = v[j];
    bool survives = true;
    for (size_t m = 1; m < e.size() && survives; ++m) {
      const size_t idx = limited(e[m] - d);
      if (e[m] - s[idx] >= window) return findings;
      survives =
          idx + 1 < s.size() && (falls ? h > v[idx + 1] && v[idx] >= h : v[idx + 1] > h && h >= v[idx]);
    }
    if (survives) findings.emplace_back(d, h, falls);
  }
  return findings;
}

TEST(RisingEdges, LeaveZeroOnly) {
  const Series t{10, 11, 12, 13, 14, 15, 16};
  EXPECT_EQ(rising_edges(t, Series{0, 1, 1, 0, 1, 0, -2}), (Series{11, 14, 16}));
  EXPECT_EQ(rising_edges(t, Series{5, 5, -0.0, std::nan(""), 0, 0, 0}), (Series{13}));
  EXPECT_EQ(rising_edges({}, {}), Series());
}

// Coarse stamps and few levels make duplicates, ties and survivors frequent.
TEST(Precursors, FollowTheRuleOnRandomSignals) {
  std::mt19937 random(301);
  const auto below = [&](unsigned n) { return static_cast<double>(random() % n); };
  size_t found = 0;
  for (int trial = 0; trial < 20000; ++trial) {
    const size_t n = random() % 40;
    const double period = 2 + below(6);
    const double step = trial % 3 == 0 ? 0.1 : trial % 3 == 1 ? 0.5 : 1.0;
    Series s, v;
    for (size_t i = 0; i < n; ++i) {
      s.push_back(i == 0 ? below(4) : s.back() + below(3) * step);
      const double phase = std::fmod(s.back(), period);
      v.push_back(random() % 8 == 0 ? below(3) : phase < period / 2 ? 2 : phase < period - 1 ? 0 : 1);
      if (random() % 200 == 0) v.back() = std::nan("");
    }
    Series events{below(20)};
    while (events.size() < 2 + random() % 3) events.push_back(events.back() + period);
    const double windows[] = {0, 1, 3.5, 10, inf, -1};
    const double window = windows[random() % 6];
    const Findings expected = by_the_rule(s, v, events, window);
    ASSERT_EQ(plain(find_precursors(s, v, events, window)), expected) << "trial " << trial;
    found += expected.size();
  }
  EXPECT_GT(found, 1000u);
}

TEST(Precursors, OfStampsInAnyOrderEnd) {
  const Series v{1, 2, 3, 2, 1};
  for (const Series& s : {Series{4, 1, 3, 0, 2}, Series{NAN, NAN, NAN, NAN, NAN}, Series{0, 1, NAN, 2, inf},
                          Series{inf, inf, inf, inf, inf}, Series{-inf, 0, 0, inf, NAN}}) {
    for (const Series& events : {Series{2, 3}, Series{NAN, inf}, Series{inf, -inf}}) {
      EXPECT_LE(find_precursors(s, v, events, NAN).size(), v.size());
    }
  }
}

}  // namespace
