// Spectrogram, transfer, correlation and three-dimensional charts, on signals whose answer is known.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "runtime/exc.h"
#include "samples.h"
#include "view/pairs.h"
#include "view/space.h"
#include "view/spectrogram.h"

namespace {

using namespace kvalo_view;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(Spectrogram, ShowsASineAtItsTimeAndFrequency) {
  std::vector<double> x, y;
  for (int i = 0; i < 10'000; ++i) {  // 100 Hz; 3 of 12.5 Hz until 50 s, then 5 of 25 Hz; a gap at 20 s
    x.push_back(100 + i * 0.01);
    const bool early = i < 5000;
    y.push_back((early ? 3 : 5) * std::sin(2 * std::numbers::pi * (early ? 12.5 : 25) * i * 0.01));
  }
  y[2000] = nan;
  const Spectrogram whole({x.data(), y.data(), 0, x.size()}, 64, 0.5);
  EXPECT_NEAR(whole.top(), 50 + 100.0 / 64 / 2, 1e-9);
  const Grid grid = whole.view({100, 200}, 100, 33);
  ASSERT_EQ(grid.height, 33U);
  const auto at = [&](double t, double hertz) {
    const double share = (hertz - grid.y.lo) / (grid.y.hi - grid.y.lo);
    return grid.cells[static_cast<size_t>(share * 33) * 100 + static_cast<size_t>(t - 100)];
  };
  EXPECT_NEAR(at(110, 12.5), 3, 1e-5);
  EXPECT_NEAR(at(180, 25), 5, 1e-5);
  EXPECT_NEAR(at(110, 25), 0, 1e-5);
  EXPECT_FALSE(std::isnan(at(121, 12.5)));
  // Zoomed in, the piece with the gap has no amplitude; outside the recording nothing has.
  EXPECT_TRUE(std::isnan(whole.view({119.99, 120.01}, 1, 1).cells[0]));
  EXPECT_TRUE(std::isnan(whole.view({300, 301}, 3, 33).cells[5]));
  // Fewer rows than lines: each keeps the greatest.
  const Grid low = whole.view({100, 150}, 10, 5);
  EXPECT_EQ(low.height, 5U);
  EXPECT_NEAR(*std::max_element(low.cells.begin(), low.cells.end()), 3, 0.2);
  EXPECT_THROW(Spectrogram({x.data(), y.data(), 0, 63}, 64, 0.1), mirn3::exc::error_t);
}

TEST(Transfer, OfAGainAndADelay) {
  const std::vector<double> input = random_samples(5000, 3, true).y;
  std::vector<double> output(input.size());
  for (size_t i = 2; i < input.size(); ++i) output[i] = -4 * input[i - 2] + 10;
  output[4000] = nan;
  const Transfer found = transfer_of(input, output, 0.01);
  ASSERT_EQ(found.frequencies.size(), 512U);
  EXPECT_NEAR(found.frequencies.back(), 50, 1e-9);
  for (const size_t k : {20, 100, 300}) {
    EXPECT_NEAR(found.gain[k], 20 * std::log10(4.0), 0.3) << k;
    const double phase = 180 - 360 * found.frequencies[k] * 0.02;
    EXPECT_NEAR(std::remainder(found.phase[k] - phase, 360), 0, 3) << k;
    EXPECT_NEAR(found.coherence[k], 1, 0.02) << k;
  }
  EXPECT_THROW(transfer_of(std::vector<double>(15), std::vector<double>(15), 1), mirn3::exc::error_t);
  EXPECT_THROW(transfer_of(std::vector<double>(20, nan), std::vector<double>(20), 1), mirn3::exc::error_t);
}

TEST(Correlation, IsTheSumOverShiftedPairs) {
  for (const size_t n : {2, 3, 10, 1000}) {
    const std::vector<double> a = random_samples(n, 8, true).y, b = random_samples(n, 9, true).y;
    const Correlation found = correlation_of(a, b, 0.5);
    ASSERT_EQ(found.values.size(), 2 * n - 1);
    EXPECT_EQ(found.lags.front(), -0.5 * static_cast<double>(n - 1));
    double mean_a = 0, mean_b = 0, aa = 0, bb = 0;
    for (size_t i = 0; i < n; ++i) {
      mean_a += a[i] / static_cast<double>(n);
      mean_b += b[i] / static_cast<double>(n);
    }
    for (size_t i = 0; i < n; ++i) {
      aa += (a[i] - mean_a) * (a[i] - mean_a);
      bb += (b[i] - mean_b) * (b[i] - mean_b);
    }
    for (size_t k = 0; k < found.values.size(); ++k) {
      double sum = 0;
      for (size_t i = 0; i < n; ++i) {
        const size_t j = i + k;  // of b, n - 1 to the left
        if (j >= n - 1 && j - (n - 1) < n) sum += (a[i] - mean_a) * (b[j - (n - 1)] - mean_b);
      }
      EXPECT_NEAR(found.values[k], sum / std::sqrt(aa * bb), 1e-9) << n << " lag " << found.lags[k];
    }
  }
  EXPECT_THROW(correlation_of(std::vector<double>(9, 1.0), std::vector<double>(9, 2.0), 1),
               mirn3::exc::error_t);
}

TEST(Correlation, FindsADelayInALongSeries) {
  const std::vector<double> a = random_samples(400'000, 4, true).y;
  std::vector<double> b(a.size());
  std::copy(a.begin(), a.end() - 1234, b.begin() + 1234);
  const Correlation found = correlation_of(a, b, 1);
  ASSERT_EQ(found.values.size(), 2 * most_lags + 1);
  const auto top = std::max_element(found.values.begin(), found.values.end()) - found.values.begin();
  EXPECT_EQ(found.lags[static_cast<size_t>(top)], 1234);
}

TEST(Path, KeepsExtremesAndGaps) {
  TestSamples s = random_samples(100'000, 11, true);
  std::vector<double> z = random_samples(100'000, 12, true).y;
  s.y[31'234] = 1e9;
  z[77'777] = -1e9;
  z[50'000] = nan;
  const Path path = path_of(s.x, s.y, z);
  EXPECT_LE(path.x.size(), most_vertices);
  EXPECT_EQ(path.samples, 100'000U);
  EXPECT_EQ(path.x.front(), s.x.front());
  EXPECT_EQ(path.z.back(), z.back());
  EXPECT_TRUE(std::is_sorted(path.x.begin(), path.x.end()));
  EXPECT_TRUE(std::count(path.y.begin(), path.y.end(), 1e9) == 1 &&
              std::count(path.z.begin(), path.z.end(), -1e9) == 1);
  EXPECT_EQ(std::count_if(path.z.begin(), path.z.end(), [](double v) { return std::isnan(v); }), 1);
  const std::vector<double> three{1, nan, 3};
  EXPECT_EQ(path_of(three, three, three).x.size(), 3U);
  EXPECT_TRUE(path_of({}, {}, {}).x.empty());
}

TEST(Surface, KeepsTheGreatestOfACell) {
  std::vector<double> x(1201), z(3), values;
  for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i);
  values.assign(x.size() * z.size(), nan);
  values[1201 + 700] = 4;
  values[1201 + 701] = 9;
  const Surface surface = surface_of(x, z, values);
  ASSERT_EQ(surface.x.size(), 401U);
  ASSERT_EQ(surface.values.size(), 401U * 3);
  EXPECT_EQ(surface.values[401 + 700 / 3], 9);
  EXPECT_EQ(surface.x[1], 4);
  EXPECT_EQ(std::count_if(surface.values.begin(), surface.values.end(), [](double v) { return v == v; }), 1);
}

}  // namespace
