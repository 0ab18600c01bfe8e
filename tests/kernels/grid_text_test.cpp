// The export kernel against printf and against a plain loop.
#include "kernels/grid_text.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "kernels/decimal_text.h"

namespace {

using namespace mirn2::kernels;

constexpr double inf = std::numeric_limits<double>::infinity();
const double nan_value = std::nan("");

std::string print(double value, int decimals) {
  char text[512];
  return {text, static_cast<size_t>(std::snprintf(text, sizeof text, "%.*f", decimals, value))};
}

std::string written(const std::vector<GridColumn>& columns, std::string_view delimiter, const Grid& grid) {
  GridWriter writer(columns, delimiter, grid);
  std::string text;
  for (auto pieces = writer.next(); !pieces.empty(); pieces = writer.next()) {
    for (const auto piece : pieces) text += piece;
  }
  return text;
}

TEST(DecimalText, IsWhatPrintfWrites) {
  const auto check = [](char* end, char* start, double value, int decimals, double limit) {
    if (end != nullptr) {
      ASSERT_EQ(std::string(start, end), print(value, decimals)) << decimals;
    } else {
      ASSERT_FALSE(std::abs(value) < limit) << value << " " << decimals;
    }
  };
  std::vector<double> values = {
      0.0,     0.5,     1.5,      2.5,       0.0000005,     2.5e-7, 1.5e-6, 0.000001, 4.35,      0.03125,
      0x1p-20, 0x3p-20, 0.999999, 0.9999995, 9.99999999e11, 1e6,    1e12,   1e17,     1e18,      0x1p52,
      0x1p53,  0x1p63,  999999.5, 0x1p-7,    1e-300,        5e-324, 1e300,  inf,      nan_value, 0x1.8p-129};
  std::mt19937_64 random(20242);
  for (int i = 0; i < 60'000; ++i) {
    values.push_back(std::bit_cast<double>(random()));  // every magnitude
    values.push_back(std::ldexp(static_cast<double>(random() >> 40), -int(random() % 64)));  // many ties
    values.push_back(static_cast<double>(random() % 2'000'000'000) / 1e6);                   // six decimals
    values.push_back(static_cast<double>(random() >> 11) * 0x1p-20);
  }
  for (const double edge : {0.0005, 1.0, 10.0, 99999999.9999995, 1e8, 0x1p-11, 0x1p-10}) {
    values.insert(values.end(), {std::nextafter(edge, 0.0), edge, std::nextafter(edge, inf)});
  }
  for (const double magnitude : values) {
    for (const double value : {magnitude, -magnitude}) {
      char room[most_fast_text];
      check(write_six_decimals(room, value), room, value, 6, 0.999e12);
      for (const int decimals : {0, 1, 2, 6, 9, 17}) {
        const double limit = std::min(0x1p53, 0.999e18 / std::pow(10.0, decimals));
        check(write_decimal(room, value, decimals), room, value, decimals, limit);
      }
      if (HasFatalFailure()) return;
    }
  }
}

TEST(GridText, TimeDecimals) {
  const std::pair<double, int> cases[] = {{0.25, 2}, {0.1, 2},      {0.01, 3},     {0.001, 4},    {0.0001, 5},
                                          {1e-6, 7}, {1e-9, 10},    {0.999, 2},    {0.02, 3},     {1.0, 0},
                                          {2.5, 0},  {1e300, 0},    {1e-300, 301}, {5e-324, 325}, {0.0, 0},
                                          {inf, 0},  {nan_value, 0}};
  for (const auto& [step, decimals] : cases) EXPECT_EQ(time_decimals(step), decimals) << step;
}

TEST(GridText, StepsThatDoNotMoveTheTimeAreRefused) {
  EXPECT_TRUE(grid_advances(0.0, 0.1, 10.0));
  EXPECT_TRUE(grid_advances(-1e9, 1e-6, 1e9));
  EXPECT_TRUE(grid_advances(0.0, 5e-324, 1e-323));
  const Grid still[] = {{0.0, 1e-20, 1.0},     {-1e16, 1.0, 0.0},  {0x1p53, 1.0, 0x1p53 + 10},
                        {0.0, 0.0, 1.0},       {0.0, -1.0, 1.0},   {nan_value, 1.0, 1.0},
                        {0.0, inf, 1.0},       {0.0, 1.0, inf},    {-inf, 1.0, 0.0},
                        {0.0, nan_value, 1.0}, {0.0, 1e291, 1e308}};
  const double one[] = {1.0}, two[] = {1.0, 2.0};
  for (const Grid& grid : still) {
    EXPECT_FALSE(grid_advances(grid.tini, grid.step, grid.tend)) << grid.tini << " " << grid.step;
    EXPECT_THROW(GridWriter({{one, one}}, ",", grid), std::invalid_argument);
  }
  EXPECT_THROW(GridWriter({{{}, {}}}, ",", {0.0, 1.0, 2.0}), std::invalid_argument);
  EXPECT_THROW(GridWriter({{two, one}}, ",", {0.0, 1.0, 2.0}), std::invalid_argument);
}

TEST(GridText, ValuesAreTheNextSampleAndTheLastOneAfterTheEnd) {
  const double x[] = {1.0, 1.0, 2.0, 2.5};
  const double y[] = {-1.5, 7.0, nan_value, -inf};
  const double once[] = {0.1};
  EXPECT_EQ(written({{x, y}, {once, once}}, "→", {0.5, 0.5, 3.0}),
            "0.50→-1.500000→0.100000\n"
            "1.00→-1.500000→0.100000\n"
            "1.50→nan→0.100000\n"
            "2.00→nan→0.100000\n"
            "2.50→-inf→0.100000\n"
            "3.00→-inf→0.100000\n");
  EXPECT_EQ(written({{x, y}}, ";", {9.0, 1.0, 9.0}), "9;-inf\n");
  EXPECT_EQ(written({{x, y}}, ";", {9.0, 1.0, 8.0}), "");
  const double minus_nan[] = {-nan_value}, minus_zero[] = {-0.0},
               huge[] = {-std::numeric_limits<double>::max()};
  EXPECT_EQ(written({{once, minus_nan}, {once, minus_zero}, {once, huge}}, ",", {-0.0, 1.0, 0.5}),
            "-0," + fmt::format("{:f},{:f},{:f}", -nan_value, -0.0, huge[0]) + "\n");
}

TEST(GridText, LongGridsAreWhatAPlainLoopWrites) {
  std::mt19937_64 random(20243);
  const auto unit = [&] { return static_cast<double>(random() >> 11) * 0x1p-53; };
  std::vector<std::vector<double>> xs(6), ys(6);
  const size_t sizes[] = {3, 1000, 60'000, 300'000, 60'000, 5000};
  for (size_t i = 0; i < xs.size(); ++i) {
    double t = -20.0;
    for (size_t k = 0; k < sizes[i]; ++k) {
      // Close samples, and now and then a gap of many rows; values that need the long way, too.
      t += unit() < 0.001 ? 3.0 : unit() * 200.0 / static_cast<double>(sizes[i]);
      xs[i].push_back(t);
      ys[i].push_back(unit() < 0.01 ? std::bit_cast<double>(random()) : (unit() - 0.5) * 1000.0);
    }
  }
  std::shuffle(xs[4].begin(), xs[4].end(), random);  // searched all the same
  xs[5][2500] = nan_value;
  const Grid grid{-3.0, 0.003, 240.0};
  std::vector<GridColumn> columns;
  for (size_t i = 0; i < xs.size(); ++i) columns.push_back({xs[i], ys[i]});

  std::string expected;
  for (double t = grid.tini; t <= grid.tend; t += grid.step) {
    expected += print(t, 4);
    for (const GridColumn& column : columns) {
      const auto i =
          static_cast<size_t>(std::lower_bound(column.x.begin(), column.x.end(), t) - column.x.begin());
      expected += fmt::format("\t{:f}", column.y[std::min(i, column.y.size() - 1)]);
    }
    expected += '\n';
  }
  const std::string text = written(columns, "\t", grid);
  ASSERT_EQ(text.size(), expected.size());
  ASSERT_TRUE(text == expected);
}

}  // namespace
