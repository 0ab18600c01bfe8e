// The memory budget and the sample vectors that are charged to it.
#include "runtime/mem.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>
#include <set>
#include <stdexcept>
#include <thread>

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
  size_t warnings() const {
    size_t count = 0;
    for (const std::string& line : log_lines()) count += line.find(" 2 Samples take ") != std::string::npos;
    return count;
  }
  uint64_t before = 0;
};

bool all_zero(const Vector& v) {
  return std::all_of(v.begin(), v.end(), [](double sample) { return sample == 0.0; });
}

TEST_F(MemTest, EmptyVectorTakesNothing) {
  Vector v;
  v.resize(0);
  v.reserve(0);
  EXPECT_EQ(v.data(), nullptr);
  EXPECT_EQ(v.holders(), 0);
  EXPECT_EQ(charged(), 0u);
  v.reset();
  EXPECT_TRUE(v.clone().empty());
  v.watch();
  v.mark_modified();
  EXPECT_FALSE(v.is_modified());
}

TEST_F(MemTest, BuffersOfEverySizeAreZeroAlignedAndCharged) {
  for (const size_t n :
       {size_t{1}, size_t{7}, size_t{8}, size_t{131071}, size_t{131072}, size_t{131073}, mapped + 1}) {
    Vector v;
    v.resize(n);
    EXPECT_EQ(v.size(), n);
    EXPECT_EQ(v.capacity(), n);
    EXPECT_EQ(charged(), n * 8);
    EXPECT_TRUE(all_zero(v)) << n;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(v.data()) % 64, 0u);
    std::fill_n(v.data(), n, 1.5);  // the last element is there
    v.reset();                      // and memory that is used again is zero again
    EXPECT_EQ(charged(), 0u);
  }
  mem::free_samples(mem::allocate_samples(0), 0);
  mem::free_samples(nullptr, 5);
}

TEST_F(MemTest, ShrinkingKeepsBufferAndContent) {
  for (const size_t n : {size_t{100}, mapped}) {
    Vector v;
    v.resize(n);
    std::iota(v.data(), v.data() + n, 0.0);
    const double* data = v.data();
    v.resize(10);
    v.reserve(n);
    EXPECT_EQ(charged(), n * 8);
    v.resize(n);
    EXPECT_EQ(v.data(), data);
    EXPECT_EQ(v[n - 1], static_cast<double>(n - 1));
    v.resize(n + 1);  // past the capacity: zeros, whatever it held
    EXPECT_TRUE(all_zero(v));
    EXPECT_EQ(charged(), (n + 1) * 8);
  }
}

TEST_F(MemTest, ReserveKeepsTheSize) {
  Vector v;
  v.reserve(5);
  EXPECT_EQ(v.size(), 0u);
  for (int i = 0; i < 5; ++i) v.append_unchecked(i);
  EXPECT_EQ(v[4], 4.0);
  v.reserve(6);
  EXPECT_EQ(v.size(), 5u);
  EXPECT_TRUE(all_zero(v));
}

TEST_F(MemTest, HoldersShareUntilTheLastOneGoes) {
  for (const size_t n : {size_t{4}, mapped}) {
    Vector first;
    first.resize(n);
    first[1] = 2.0;
    Vector second = first;
    Vector third;
    third = second;
    second[1] = 3.0;
    EXPECT_EQ(first[1], 3.0);
    EXPECT_EQ(first.holders(), 3);
    EXPECT_EQ(charged(), n * 8);
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
    third.reset();
    moved.reset();
    EXPECT_EQ(charged(), n * 8);
  }
}

TEST_F(MemTest, AdoptedBufferIsFreedByItsOwnAllocator) {
  for (const size_t n : {size_t{3}, mapped}) {
    auto* buffer = static_cast<double*>(std::malloc(n * sizeof(double)));
    std::fill_n(buffer, n, 7.0);
    Vector v;
    v.resize(1);
    v.assign_move(n, buffer);
    EXPECT_EQ(v.data(), buffer);
    EXPECT_EQ(v.size(), n);
    EXPECT_EQ(v.capacity(), n);
    EXPECT_EQ(charged(), n * 8);
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
  std::thread([] { Vector().resize(1); }).join();
  EXPECT_EQ(calls, 2);
  mirn3::shut();  // nothing is called after the end
  v.resize(600);
  EXPECT_EQ(calls, 2);
}

TEST_F(MemTest, FailingCallbackDoesNotFailTheCharge) {
  mem::memory_bank = mem::memory_used + 80;
  mem::callback_reserve = [] { throw std::runtime_error("no room to be made"); };
  Vector v;
  v.resize(100);
  EXPECT_EQ(v.size(), 100u);
  EXPECT_THAT(log_lines().at(0), testing::HasSubstr("no room to be made"));
}

TEST_F(MemTest, WarnsOncePerCrossing) {
  mem::memory_bank = mem::memory_used + 80;
  for (size_t crossing = 1; crossing <= 3; ++crossing) {
    std::vector<Vector> held(10);
    for (Vector& v : held) v.resize(5);
    EXPECT_EQ(warnings(), crossing);
    held.clear();
  }
  mem::callback_reserve = [] { mem::memory_bank = 1 << 20; };
  Vector v;
  v.resize(100);  // room could be made: no warning
  EXPECT_EQ(warnings(), 3u);
}

TEST_F(MemTest, ModificationsAreSeen) {
  const struct {
    const char* what;
    std::function<void(Vector&)> change;
    bool modified;
  } cases[] = {
      {"nothing", [](Vector&) {}, false},
      {"watched, untouched", [](Vector& v) { v.watch(); }, false},
      {"not watched, written", [](Vector& v) { v[3] = -1.0; }, false},
      {"marked", [](Vector& v) { v.mark_modified(); }, true},
      {"last sample written", [](Vector& v) { v.watch(), v[v.size() - 1] = -1.0; }, true},
      {"all signs turned",
       [](Vector& v) {
         v.watch();
         for (double& sample : v.span()) sample = -sample;
       },
       true},
      {"two samples swapped", [](Vector& v) { v.watch(), std::swap(v[0], v[8]); }, true},
      {"one bit", [](Vector& v) { v.watch(), v[5] = std::nextafter(v[5], 1e9); }, true},
      {"written and written back", [](Vector& v) { v.watch(), v[0] += 1.0, v[0] -= 1.0; }, false},
      {"written, then watched again", [](Vector& v) { v.watch(), v[0] = 9.0, v.mark_modified(), v.watch(); },
       true},
      {"shrunk after watching", [](Vector& v) { v.watch(), v.resize(1); }, false},
  };
  for (const auto& c : cases) {
    Vector v;
    v.resize(1000);
    std::iota(v.data(), v.data() + v.size(), 1.0);
    const Vector other_holder = v;
    c.change(v);
    EXPECT_EQ(v.is_modified(), c.modified) << c.what;
    EXPECT_EQ(other_holder.is_modified(), c.modified) << c.what << ", other holder";
  }
}

TEST_F(MemTest, DigestTellsLengthsAndOrdersApart) {
  std::vector<double> samples(40);
  std::set<uint64_t> digests;
  for (size_t n = 0; n <= samples.size(); ++n)
    digests.insert(mem::digest(samples.data(), n));  // zeros of all lengths
  for (double& sample : samples) {
    for (const double value : {1.0, -0.0, std::nan("")}) {
      sample = value;
      digests.insert(mem::digest(samples.data(), samples.size()));
    }
    sample = 0.0;
  }
  for (size_t i = 1; i < samples.size(); ++i) {  // the same two values at other places
    samples[0] = 1.0;
    samples[i] = 2.0;
    digests.insert(mem::digest(samples.data(), samples.size()));
    std::swap(samples[0], samples[i]);
    digests.insert(mem::digest(samples.data(), samples.size()));
    samples[0] = samples[i] = 0.0;
  }
  EXPECT_EQ(digests.size(), 41u + 3 * 40 + 2 * 39);
}

TEST_F(MemTest, BudgetComesFromTheEnvironmentOrTheMachine) {
  ::unsetenv("KVALO_MEMORY_BANK");
  mem::configure();
  const uint64_t machine = mem::memory_bank;
  EXPECT_GT(machine, uint64_t{1} << 20);
  EXPECT_LT(machine, uint64_t{1} << 50);
  const struct {
    const char* asked;
    uint64_t bank;
  } cases[] = {{"123456789", 123456789}, {"", machine},  {"1e9", machine},
               {"-5", machine},          {"0", machine}, {"99999999999999999999999", machine},
               {"12 MB", machine}};
  size_t refused = 0;
  for (const auto& c : cases) {
    ::setenv("KVALO_MEMORY_BANK", c.asked, 1);
    mirn1::init_pyd();
    EXPECT_EQ(mem::memory_bank, c.bank) << c.asked;
    refused += c.bank == machine;
    EXPECT_EQ(log_lines().size(), refused);
    mirn1::shut_pyd();
  }
  ::unsetenv("KVALO_MEMORY_BANK");
}

TEST_F(MemTest, ChargesOfManyThreadsAddUp) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (size_t i = 0; i < 2000; ++i) Vector().resize(i % 50 + 1);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(charged(), 0u);
}

}  // namespace
