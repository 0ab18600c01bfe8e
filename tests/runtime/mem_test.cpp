// The memory budget and the sample vectors that are charged to it.
#include "runtime/mem.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>
#include <stdexcept>

#include "runtime/home.h"
#include "startup/startup.h"

namespace mem = mirn3::mem;
using Vector = mirn3::shared_vector<double>;

namespace {

constexpr size_t mapped = size_t{3} << 17;  // elements of a buffer that is mapped: 3 MiB

class MemTest : public Home {
 protected:
  void SetUp() override {
    Home::SetUp();
    before = mem::memory_used;
    mem::memory_bank = std::numeric_limits<uint64_t>::max();
  }
  void TearDown() override {
    mem::callback_reserve = nullptr;
    mem::memory_bank = std::numeric_limits<uint64_t>::max();
    EXPECT_EQ(charged(), 0u) << "a charge was not given back";
    Home::TearDown();
  }
  uint64_t charged() const { return mem::memory_used - before; }
  size_t warnings() const { return log_lines(" 2 Samples take ").size(); }
  uint64_t before = 0;
};

bool all_zero(const Vector& v) { return std::count(v.begin(), v.end(), 0.0) == std::ssize(v); }

TEST_F(MemTest, BuffersOfEverySizeAreZeroAlignedAndCharged) {
  for (const size_t n : {0ul, 1ul, 7ul, 8ul, 131071ul, 131072ul, 131073ul, mapped + 1}) {
    Vector v;
    v.resize(n);
    EXPECT_EQ(v.size(), n);
    EXPECT_EQ(v.capacity(), n);
    EXPECT_EQ(charged(), n * 8);
    EXPECT_TRUE(all_zero(v)) << n;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(v.data()) % 64, 0u);
    std::fill_n(v.data(), n, 1.5);  // the last element is there
    v.reset();
    v.resize(n);
    EXPECT_TRUE(all_zero(v)) << "memory that is used again, " << n;
    v.reset();
    EXPECT_EQ(charged(), 0u);
    EXPECT_TRUE(v.clone().empty());
  }
  mem::free_samples(mem::allocate_samples(0, mem::Content::any), 0);
  mem::free_samples(nullptr, 5);
}

TEST_F(MemTest, ShrinkingKeepsTheBufferAndGrowingPastItGivesZeros) {
  for (const size_t n : {size_t{100}, mapped}) {
    Vector v;
    v.reserve(n);
    EXPECT_EQ(v.size(), 0u);
    for (size_t i = 0; i < n; ++i) v.append_unchecked(static_cast<double>(i));
    const double* data = v.data();
    v.resize(10);
    v.reserve(n);
    EXPECT_EQ(charged(), n * 8);
    v.resize(n);
    EXPECT_EQ(v.data(), data);
    EXPECT_EQ(v[n - 1], static_cast<double>(n - 1));
    v.reserve(n + 1);
    EXPECT_EQ(v.size(), n);
    v[0] = 1.0;
    v.resize(n + 2);
    EXPECT_TRUE(all_zero(v));
    EXPECT_EQ(charged(), (n + 2) * 8);
  }
}

TEST_F(MemTest, HoldersShareUntilTheLastOneGoes) {
  for (const size_t n : {size_t{4}, mapped}) {
    Vector first;
    first.resize(n);
    Vector second = first, third;
    third = second;
    second[1] = 3.0;  // whoever shares on purpose may skip make_unique
    EXPECT_EQ(first[1], 3.0);
    EXPECT_EQ(first.holders(), 3);
    EXPECT_EQ(charged(), n * 8);
    third.make_unique();
    EXPECT_NE(third.data(), first.data());
    EXPECT_EQ(third[1], 3.0);
    const double* own = third.data();
    third.make_unique();
    EXPECT_EQ(third.data(), own);
    third = first;
    const Vector copy = first.clone();
    EXPECT_EQ(charged(), 2 * n * 8);
    first.reset();
    third.resize(n + 10);  // growing one leaves the other its samples
    EXPECT_EQ(second[1], 3.0);
    EXPECT_EQ(second.holders(), 1);
    EXPECT_EQ(charged(), (3 * n + 10) * 8);
    second[1] = 4.0;
    EXPECT_EQ(copy[1], 3.0);
    Vector moved = std::move(second);
    EXPECT_EQ(moved[1], 4.0);
    EXPECT_EQ(second.holders(), 0);  // NOLINT: a vector that was moved from is empty
    third.reset(), moved.reset();
    EXPECT_EQ(charged(), n * 8);

    auto* foreign = static_cast<double*>(std::malloc(n * sizeof(double)));  // freed as it was allocated
    moved.resize(1);
    moved.assign_move(n, foreign);
    EXPECT_EQ(moved.data(), foreign);
    EXPECT_EQ(moved.size(), n);
    EXPECT_EQ(charged(), 2 * n * 8);
  }
}

TEST_F(MemTest, FailedAllocationGivesTheChargeBackAndKeepsTheVector) {
  Vector v;
  v.resize(2);
  v[1] = 5.0;
  for (const uint64_t n : {uint64_t{1} << 45, uint64_t{1} << 60, uint64_t{1} << 61, ~uint64_t{0}}) {
    EXPECT_THROW(v.resize(n), std::bad_alloc) << n;
    EXPECT_EQ(charged(), 16u) << n;
    EXPECT_EQ(v.size(), 2u);
    EXPECT_EQ(v[1], 5.0);
  }
}

TEST_F(MemTest, CallbackMakesRoomOncePerChargeAndNotWithinItself) {
  Vector old;
  old.resize(1000);
  mem::memory_bank = mem::memory_used + 4000;
  int calls = 0;
  mem::callback_reserve = [&] {
    ++calls;
    Vector helper;
    helper.resize(2000);  // over the budget itself
    old.reset();
  };
  Vector v;
  v.resize(500);  // up to the budget, not over
  EXPECT_EQ(calls, 0);
  v.resize(501);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(old.empty());
  EXPECT_EQ(charged(), 501u * 8);

  // Every thread may ask: the guard is the thread's own.
  mem::memory_bank = 1;
  run_threads(1, [](size_t) { Vector().resize(1); });
  EXPECT_EQ(calls, 2);
  mirn3::shut();  // nothing is called after the end
  v.resize(600);
  EXPECT_EQ(calls, 2);
}

TEST_F(MemTest, WarnsOncePerCrossingUnlessRoomIsMade) {
  mem::memory_bank = mem::memory_used + 80;
  for (size_t crossing = 1; crossing <= 3; ++crossing) {
    std::vector<Vector> held(10);
    for (Vector& v : held) v.resize(5);
    EXPECT_EQ(warnings(), crossing);
  }
  Vector v;
  mem::callback_reserve = [] { throw std::runtime_error("no room to be made"); };
  v.resize(100);  // a callback that fails does not fail the charge
  EXPECT_EQ(v.size(), 100u);
  EXPECT_EQ(log_lines("no room to be made").size(), 1u);
  EXPECT_EQ(warnings(), 4u);
  v.reset();
  mem::callback_reserve = [] { mem::memory_bank = 1 << 20; };
  v.resize(100);
  EXPECT_EQ(warnings(), 4u);
}

TEST_F(MemTest, BudgetComesFromTheEnvironmentOrTheMachine) {
  ::unsetenv("KVALO_MEMORY_BANK");
  mem::configure();
  const uint64_t machine = mem::memory_bank;
  EXPECT_GT(machine, uint64_t{1} << 20);
  EXPECT_LT(machine, uint64_t{1} << 50);
  size_t refused = 0;
  for (const std::string asked : {"123456789", "", "1e9", "-5", "0", "99999999999999999999999", "12 MB"}) {
    ::setenv("KVALO_MEMORY_BANK", asked.c_str(), 1);
    mirn1::init_pyd();
    const bool taken = asked == "123456789";
    EXPECT_EQ(mem::memory_bank, taken ? 123456789 : machine) << asked;
    EXPECT_EQ(log_lines().size(), refused += !taken);
    mirn1::shut_pyd();
  }
  ::unsetenv("KVALO_MEMORY_BANK");
}

}  // namespace
