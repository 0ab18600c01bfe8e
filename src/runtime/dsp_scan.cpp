// Finds limits of values and compares time stamps, as fast as memory allows.
#include "runtime/dsp_scan.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "runtime/machine.h"
#include "runtime/par.h"

#ifdef __x86_64__
#include <immintrin.h>
#define KVALO_AVX2 [[gnu::target("avx2")]]
#endif

namespace mirn3::dsp {

namespace {

void add_plain(const double* values, size_t n, Limits& limits) {
  for (size_t i = 0; i < n; ++i) limits.add(values[i]);
}

void add_pairs_plain(const double* a, const double* b, size_t n, Limits& of_a, Limits& of_b) {
  for (size_t i = 0; i < n; ++i) {
    if (a[i] != a[i] || b[i] != b[i]) continue;
    of_a.add(a[i]);
    of_b.add(b[i]);
  }
}

bool ascends_plain(const double* t, size_t intervals) {
  uint64_t others = 0;
  for (size_t i = 0; i < intervals; ++i) others |= static_cast<uint64_t>(!(t[i] < t[i + 1]));
  return others == 0;
}

#ifdef __x86_64__

// The limits of four series of values at once.
struct FourLimits {
  __m256d lo;
  __m256d hi;

  KVALO_AVX2 FourLimits()
      : lo(_mm256_set1_pd(std::numeric_limits<double>::infinity())),
        hi(_mm256_set1_pd(-std::numeric_limits<double>::infinity())) {}

  // Of a NaN and a number these instructions answer their second operand.
  KVALO_AVX2 void add(__m256d values) {
    lo = _mm256_min_pd(values, lo);
    hi = _mm256_max_pd(values, hi);
  }

  KVALO_AVX2 void add_to(Limits& limits) const {
    alignas(32) double each[8];
    _mm256_store_pd(each, lo);
    _mm256_store_pd(each + 4, hi);
    for (size_t k = 0; k < 4; ++k) limits.add({each[k], each[4 + k]});
  }
};

KVALO_AVX2 size_t add_avx2(const double* values, size_t n, Limits& limits) {
  FourLimits four[4];  // so that none waits for the one before
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    for (size_t k = 0; k < 4; ++k) four[k].add(_mm256_loadu_pd(values + i + 4 * k));
  }
  for (const FourLimits& each : four) each.add_to(limits);
  return i;
}

KVALO_AVX2 size_t add_pairs_avx2(const double* a, const double* b, size_t n, Limits& of_a, Limits& of_b) {
  FourLimits four_a[2];
  FourLimits four_b[2];
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    for (size_t k = 0; k < 2; ++k) {
      const __m256d one = _mm256_loadu_pd(a + i + 4 * k), other = _mm256_loadu_pd(b + i + 4 * k);
      const __m256d missing = _mm256_cmp_pd(one, other, _CMP_UNORD_Q);  // all bits: a NaN
      four_a[k].add(_mm256_or_pd(one, missing));
      four_b[k].add(_mm256_or_pd(other, missing));
    }
  }
  for (size_t k = 0; k < 2; ++k) {
    four_a[k].add_to(of_a);
    four_b[k].add_to(of_b);
  }
  return i;
}

KVALO_AVX2 bool ascends_avx2(const double* t, size_t intervals) {
  __m256d all = _mm256_castsi256_pd(_mm256_set1_epi64x(-1));
  size_t i = 0;
  for (; i + 4 <= intervals; i += 4) {
    all = _mm256_and_pd(all, _mm256_cmp_pd(_mm256_loadu_pd(t + i), _mm256_loadu_pd(t + i + 1), _CMP_LT_OQ));
  }
  return _mm256_movemask_pd(all) == 0xf && ascends_plain(t + i, intervals - i);
}

#else

bool machine::has_avx2() { return false; }
size_t add_avx2(const double*, size_t, Limits&) { return 0; }
size_t add_pairs_avx2(const double*, const double*, size_t, Limits&, Limits&) { return 0; }
bool ascends_avx2(const double* t, size_t intervals) { return ascends_plain(t, intervals); }

#endif

}  // namespace

Limits limits_of(std::span<const double> values) {
  Limits all;
  std::mutex mutex;
  par::ranges(values.size(), scan_least, [&](size_t first, size_t last) {
    Limits mine;
    if (machine::has_avx2()) first += add_avx2(&values[first], last - first, mine);
    add_plain(values.data() + first, last - first, mine);
    const std::lock_guard lock(mutex);
    all.add(mine);
  });
  return all;
}

void add_pairs(const double* a, const double* b, size_t n, Limits& of_a, Limits& of_b) {
  const size_t done = machine::has_avx2() ? add_pairs_avx2(a, b, n, of_a, of_b) : 0;
  add_pairs_plain(a + done, b + done, n - done, of_a, of_b);
}

bool is_same_time(std::span<const double> a, std::span<const double> b) {
  constexpr size_t block = 2048;  // stays in the first cache from one comparison to the other
  std::atomic<bool> same{true};
  par::ranges(a.size() - 1, scan_least, [&](size_t first, size_t last) {
    for (; first < last && same.load(std::memory_order_relaxed); first = std::min(last, first + block)) {
      const size_t n = std::min(block, last - first);
      const double* const t = b.data() + first;
      const bool equal = a.data() == b.data() || std::memcmp(a.data() + first, t, n * sizeof *t) == 0;
      if (!equal || !(machine::has_avx2() ? ascends_avx2(t, n) : ascends_plain(t, n))) same = false;
    }
  });
  return same && a.back() == b.back();
}

}  // namespace mirn3::dsp
