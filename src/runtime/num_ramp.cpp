// Makes vectors of evenly spaced numbers, and shares them.
#include "runtime/num_ramp.h"

#include <algorithm>
#include <cstddef>
#include <mutex>

#include "runtime/machine.h"
#include "runtime/par.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace mirn3::num {

namespace {

constexpr uint64_t most_kept = (uint64_t{256} << 20) / sizeof(double);
constexpr size_t least = size_t{1} << 17;  // worth a thread, and too many for its caches

struct Ramp {
  double step = 0;
  shared_vector<double> values;
};

std::mutex guard;  // never held while memory is charged or given back
Ramp& kept() {
  static Ramp* ramp = new Ramp;  // never destroyed: the budget may be gone by then
  return *ramp;
}

void fill_plain(size_t first, size_t last, double step, double* x) noexcept {
  for (size_t i = first; i < last; ++i) x[i] = static_cast<double>(i) * step;
}

#if defined(__x86_64__)

// Past the caches: otherwise every line of the vector would be read before it is overwritten.
__attribute__((target("avx2"))) void fill_avx2(size_t first, size_t last, double step, double* x) noexcept {
  const size_t misaligned = reinterpret_cast<uintptr_t>(x + first) % 32 / sizeof(double);
  size_t i = misaligned == 0 ? first : std::min(last, first + 4 - misaligned);
  fill_plain(first, i, step, x);
  const __m256d steps = _mm256_set1_pd(step), four = _mm256_set1_pd(4.0);
  const auto start = static_cast<double>(i);
  __m256d index = _mm256_setr_pd(start, start + 1, start + 2, start + 3);  // stays exact below 2^53
  for (; last - i >= 4; i += 4) {
    _mm256_stream_pd(x + i, _mm256_mul_pd(index, steps));
    index = _mm256_add_pd(index, four);
  }
  _mm_sfence();
  fill_plain(i, last, step, x);
}

#endif

void fill(double step, shared_vector<double>& values) {
  double* const x = values.data();
  par::ranges(values.size(), least, [&](size_t first, size_t last) {
#if defined(__x86_64__)
    if (machine::has_avx2() && last - first >= least) return fill_avx2(first, last, step, x);
#endif
    fill_plain(first, last, step, x);
  });
}

}  // namespace

shared_vector<double> ramp(double step, uint64_t n) {
  if (n == 0) return {};
  shared_vector<double> values;
  {
    const std::lock_guard lock(guard);
    if (kept().step == step && kept().values.size() >= n) values = kept().values;
  }
  if (!values.empty()) {
    values.resize(n);
    return values;
  }
  values.resize_for_overwrite(n);
  fill(step, values);
  if (n <= most_kept) {
    Ramp fresh{step, values};
    const std::lock_guard lock(guard);
    std::swap(kept(), fresh);
  }
  return values;
}

void forget_ramp() noexcept {
  Ramp dropped;
  const std::lock_guard lock(guard);
  std::swap(kept(), dropped);
}

}  // namespace mirn3::num
