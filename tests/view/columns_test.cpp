// Pyramid, columns and pixels against what a plain loop over all samples finds.
#include "view/columns.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "samples.h"
#include "view/pixels.h"

namespace {

using namespace kvalo_view;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

double finite(double value) { return std::isfinite(value) ? value : nan; }

// One column by its definition: every sample is asked whether it belongs to it.
Column plain_column(const TestSamples& s, Range range, size_t k, size_t width, bool holds) {
  const double left = edge(range, k, width), right = edge(range, k + 1, width);
  Extremes all;
  double first = nan, last = nan, held = nan;
  bool any = false, has_held = false;
  for (size_t i = 0; i < s.x.size(); ++i) {
    const bool inside = s.x[i] >= left && (k + 1 == width ? s.x[i] <= right : s.x[i] < right);
    if (s.x[i] < left) {
      held = s.y[i];
      has_held = true;
    }
    if (!inside) continue;
    if (!any) first = s.y[i];
    if (!any && s.x[i] == left) has_held = false;
    any = true;
    last = s.y[i];
    all.add(s.y[i]);
  }
  if (holds && has_held && (any || left <= s.x.back())) {
    all.add(held);
    first = held;
    if (!any) last = held;
    any = true;
  }
  if (!any) return {nan, nan, nan, nan, mark_empty};
  return {finite(first), all.empty() ? nan : all.lo, all.empty() ? nan : all.hi, finite(last), all.marks};
}

void expect_plain(const TestSamples& s, Range range, size_t width) {
  const Pyramid pyramid(s.x, s.y);
  const Curve curve{s.x, s.y, pyramid};
  ASSERT_TRUE(pyramid.ascends());
  for (const bool holds : {false, true}) {
    const Columns found = holds ? hold_columns(curve, range, width) : line_columns(curve, range, width);
    ASSERT_EQ(found.columns.size(), width);
    for (size_t k = 0; k < width; ++k) {
      const Column is = found.columns[k], wanted = plain_column(s, range, k, width, holds);
      ASSERT_TRUE(alike(is.first, wanted.first) && alike(is.lo, wanted.lo) && alike(is.hi, wanted.hi) &&
                  alike(is.last, wanted.last) && is.marks == wanted.marks)
          << s.name << " hold=" << holds << " column " << k << " of " << width << ": " << is.first << ' '
          << is.lo << ' ' << is.hi << ' ' << is.last << ' ' << int{is.marks} << " instead of " << wanted.first
          << ' ' << wanted.lo << ' ' << wanted.hi << ' ' << wanted.last << ' ' << int{wanted.marks};
    }
  }
}

TEST(Pyramid, FindsTheExtremesOfAnyRange) {
  for (const size_t n : {0, 1, 63, 64, 65, 128, 1000, 20'000}) {
    const TestSamples s = random_samples(n, static_cast<unsigned>(n));
    const Pyramid pyramid(s.x, s.y);
    std::mt19937_64 random(n);
    for (int i = 0; i < 300; ++i) {
      size_t a = random() % (n + 1), b = random() % (n + 1);
      if (a > b) std::swap(a, b);
      Extremes wanted;
      for (size_t k = a; k < b; ++k) wanted.add(s.y[k]);
      const Extremes found = pyramid.range(a, b);
      ASSERT_TRUE(found.lo == wanted.lo && found.hi == wanted.hi && found.marks == wanted.marks) << s.name;
    }
  }
}

TEST(Pyramid, KnowsWhetherTimeAscends) {
  for (const size_t n : {2, 64, 65, 1000}) {
    TestSamples s = random_samples(n, 1);
    EXPECT_TRUE(Pyramid(s.x, s.y).ascends());
    for (const size_t at : {size_t{1}, n / 2, n - 1}) {
      for (const double wrong : {-1e9, nan}) {
        TestSamples broken = s;
        broken.x[at] = wrong;
        EXPECT_FALSE(Pyramid(broken.x, broken.y).ascends()) << n << " at " << at;
      }
    }
  }
  EXPECT_FALSE(Pyramid(std::vector{nan}, std::vector{1.0}).ascends());
}

TEST(Pyramid, TakesAFortiethOfTheSamples) {
  const std::vector<double> zeros(1 << 20);
  EXPECT_LE(Pyramid(zeros, zeros).memory(), zeros.size() * 16 / 40);
}

TEST(Columns, AreThoseOfAPlainLoop) {
  for (const size_t n : {1, 2, 3, 50, 700, 5000}) {
    for (const unsigned seed : {1U, 2U}) {
      const TestSamples s = random_samples(n, seed);
      const Range whole{s.x.front() - 1, s.x.back() + 1};
      for (const size_t width : {1, 7, 100}) {
        expect_plain(s, whole, width);
        expect_plain(s, {s.x[n / 3], std::max(s.x[n / 2], s.x[n / 3] + 1e-3)}, width);
        expect_plain(s, {whole.hi + 1, whole.hi + 2}, width);
        expect_plain(s, {whole.lo - 2, whole.lo - 1}, width);
      }
    }
  }
}

TEST(Columns, SamplesAtEdgesBelongToTheRight) {
  TestSamples s{"even", {}, {}};
  for (int i = 0; i <= 40; ++i) {
    s.x.push_back(i);
    s.y.push_back(i % 7);
  }
  for (const size_t width : {1, 4, 8, 40, 80}) expect_plain(s, {0, 40}, width);
  s.y.assign(s.y.size(), 3.0);
  expect_plain(s, {0, 40}, 8);
  s.y.assign(s.y.size(), inf);
  expect_plain(s, {0, 40}, 8);
  s.x.assign(s.x.size(), 20.0);
  expect_plain(s, {0, 40}, 8);
}

TEST(Columns, CarryTheNeighboursOutside) {
  const TestSamples s{"", {0, 1, 2, 3}, {10, 11, nan, 13}};
  const Pyramid pyramid(s.x, s.y);
  const Columns found = line_columns({s.x, s.y, pyramid}, {0.5, 1.5}, 4);
  EXPECT_EQ(found.samples, 1U);
  EXPECT_EQ(found.before_x, 0);
  EXPECT_EQ(found.before_y, 10);
  EXPECT_EQ(found.after_x, 2);
  EXPECT_TRUE(std::isnan(found.after_y));
  const std::vector<double> none;
  EXPECT_TRUE(std::isnan(line_columns({none, none, Pyramid(none, none)}, {0, 1}, 3).before_x));
}

TEST(Pixels, AreThoseThatHoldASample) {
  const TestSamples a = random_samples(3000, 5), b = random_samples(3000, 6);
  const Range across{-3, 3}, up{-2, 4};
  constexpr size_t width = 70, height = 33;
  std::vector<uint32_t> wanted;
  for (size_t row = 0; row < height; ++row) {
    for (size_t column = 0; column < width; ++column) {
      for (size_t i = 0; i < a.y.size(); ++i) {
        const double right = (a.y[i] - across.lo) / 6 * width, high = (b.y[i] - up.lo) / 6 * height;
        if (!(right >= 0 && right <= width && high >= 0 && high <= height)) continue;
        const size_t c = std::min<size_t>(static_cast<size_t>(right), width - 1);
        const size_t r = height - 1 - std::min<size_t>(static_cast<size_t>(high), height - 1);
        if (r == row && c == column) {
          wanted.push_back(static_cast<uint32_t>(row * width + column));
          break;
        }
      }
    }
  }
  const Mask mask = occupied(a.y, b.y, across, up, width, height);
  EXPECT_EQ(mask.pixels(), wanted);
  EXPECT_EQ(mask.count(), wanted.size());
  EXPECT_TRUE(mask.at(wanted[3] / width, wanted[3] % width));
  // A point in each corner; one beyond, and what is not finite, is nowhere.
  const std::vector<double> x{0, 0, 1, 1, 1.1, nan, inf}, y{0, 1, 0, 1, 0.5, 0.5, 0.5};
  EXPECT_EQ(occupied(x, y, {0, 1}, {0, 1}, 40, 10).pixels(), (std::vector<uint32_t>{0, 39, 360, 399}));
  const Box box = box_of(x, y);
  EXPECT_EQ(box.x.hi, 1.1);
}

TEST(Pixels, HeldValues) {
  const std::vector<double> x{1, 2, 2, 4}, y{10, 20, 21, 40}, t{0, 1, 2, 3, 9};
  const std::vector<double> held = held_at(t, x, y);
  EXPECT_TRUE(std::isnan(held[0]));
  EXPECT_EQ(std::vector<double>(held.begin() + 1, held.end()), (std::vector<double>{10, 21, 21, 40}));
}

}  // namespace
