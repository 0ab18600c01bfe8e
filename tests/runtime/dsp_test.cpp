// Numeric kernels that need no interpreter: transforms against the defining sum, errors, cores.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "runtime/dsp_distribution.h"
#include "runtime/dsp_fft.h"
#include "runtime/dsp_fit.h"
#include "runtime/exc.h"

namespace {

using namespace mirn3::dsp;
using testing::HasSubstr;
using testing::ThrowsMessage;

struct Series {
  std::vector<double> t;
  std::vector<double> y;

  explicit Series(size_t n) : t(n), y(n) {
    std::mt19937_64 random(n);
    std::normal_distribution<double> normal;
    for (size_t i = 0; i < n; ++i) {
      t[i] = static_cast<double>(i) / 4;
      y[i] = normal(random);
    }
  }
  arg_t range(size_t first = 0) const { return {t.data(), y.data(), first, t.size()}; }
};

double magnitude_by_definition(const std::vector<double>& y, size_t k) {
  std::complex<long double> sum = 0;
  for (size_t j = 0; j < y.size(); ++j) {
    const auto turns = static_cast<long double>(j * k % y.size()) / static_cast<long double>(y.size());
    sum += static_cast<long double>(y[j]) * std::polar(1.0L, -2 * std::numbers::pi_v<long double> * turns);
  }
  return static_cast<double>(std::abs(sum));
}

TEST(Fft, RawLinesAreTheDefiningSum) {
  std::vector<size_t> lengths{1, 1009, 2018, 3027, 2026, 4036};  // primes and small multiples need chirps
  for (size_t n = 2; n <= 40; ++n) lengths.push_back(n);
  for (const size_t n : lengths) {
    const Series s(n);
    std::vector<double> lines(fft_lines(s.range()));
    fft_values(s.range(), true, lines);
    ASSERT_EQ(lines.size(), n / 2 + 1);
    const size_t step = n > 100 ? 17 : 1;
    for (size_t k = 0; k < lines.size(); k += step) {
      EXPECT_NEAR(lines[k], magnitude_by_definition(s.y, k), 1e-12 * static_cast<double>(n)) << n << ' ' << k;
    }
  }
}

TEST(Sizes, AreRefusedBeforeMemoryIsTaken) {
  const Series s(10);
  const auto refused = [](const char* reason) {
    return ThrowsMessage<mirn3::exc::error_t>(HasSubstr(reason));
  };
  EXPECT_THAT([&] { fit_pol(s.t.data(), s.y.data(), 10, 10); }, refused("between 1 and 9"));
  EXPECT_THAT([&] { histogram(s.range(), std::numeric_limits<size_t>::max()); }, refused("between 1 and"));
  EXPECT_THAT([&] { heatmap(s.range(), s.range(), size_t{1} << 40, size_t{1} << 40); },
              refused("between 1 and"));
}

TEST(Distribution, EqualSamplesShareTheMiddleBin) {
  for (const double value : {0.0, -7.0, 1e6, 1e300, -1e17}) {
    Series s(9);
    s.y.assign(9, value);
    const histogram_t found = histogram(s.range(), 3);
    EXPECT_THAT(found.values, testing::ElementsAre(0, 9, 0)) << value;
    EXPECT_DOUBLE_EQ(found.centres[1], value);
  }
}

}  // namespace
