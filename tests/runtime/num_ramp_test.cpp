#include "runtime/num_ramp.h"

#include <gtest/gtest.h>

#include <vector>

#include "runtime/mem.h"

namespace mirn3::num {
namespace {

TEST(Ramp, IsTheIndexTimesTheStepRoundedOnce) {
  for (const uint64_t n : {0UL, 1UL, 5UL, 300'001UL}) {
    const shared_vector<double> times = ramp(0.1, n);
    ASSERT_EQ(times.size(), n);
    for (uint64_t i = 0; i < n; ++i) ASSERT_EQ(times[i], static_cast<double>(i) * 0.1) << i;
  }
}

TEST(Ramp, OneVectorServesAllThatHaveItsStep) {
  const shared_vector<double> longest = ramp(0.25, 1000);
  const shared_vector<double> prefix = ramp(0.25, 10);
  EXPECT_EQ(prefix.data(), longest.data());
  EXPECT_EQ(prefix.size(), 10U);

  shared_vector<double> written = prefix;
  written.make_unique();
  written[3] = -1;
  EXPECT_EQ(longest[3], 0.75);
  EXPECT_EQ(written.size(), 10U);

  EXPECT_EQ(ramp(0.5, 10)[3], 1.5);
  EXPECT_EQ(ramp(0.25, 2000)[1999], 499.75);
}

TEST(Ramp, WhatIsForgottenIsGivenBack) {
  forget_ramp();
  const uint64_t before = mem::memory_used;
  (void)ramp(2.0, 100'000);
  EXPECT_EQ(mem::memory_used - before, 800'000U);
  forget_ramp();
  EXPECT_EQ(mem::memory_used, before);
}

}  // namespace
}  // namespace mirn3::num
