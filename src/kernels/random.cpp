// The 32-bit Mersenne Twister and the numbers drawn from it.
#include "kernels/random.h"

#include <bit>
#include <cmath>

namespace mirn2::kernels {

namespace {

// In [0, 1) with 53 random bits.
double unit(Twister& engine) {
  const auto upper = static_cast<double>(engine() >> 5);
  const auto lower = static_cast<double>(engine() >> 6);
  return (upper * 67108864.0 + lower) / 9007199254740992.0;
}

uint64_t draw64(Twister& engine) {
  const uint64_t upper = engine();
  return upper << 32 | engine();
}

struct Pair {
  double first;
  double second;
};

// A point within the unit circle, stretched into two independent normal numbers.
Pair normal_pair(Twister& engine) {
  double x = 0.0;
  double y = 0.0;
  double r2 = 0.0;
  do {
    x = 2.0 * unit(engine) - 1.0;
    y = 2.0 * unit(engine) - 1.0;
    r2 = x * x + y * y;
  } while (r2 >= 1.0 || r2 == 0.0);
  const double stretch = std::sqrt(-2.0 * std::log(r2) / r2);
  return {stretch * y, stretch * x};
}

}  // namespace

void uniform_reals(Twister& engine, double lo, double hi, std::span<double> out) {
  const double width = hi - lo;
  for (double& v : out) v = lo + width * unit(engine);
}

void normal_reals(Twister& engine, double mean, double spread, std::span<double> out) {
  for (size_t i = 0; i < out.size(); i += 2) {
    const Pair pair = normal_pair(engine);
    out[i] = mean + spread * pair.first;
    if (i + 1 < out.size()) out[i + 1] = mean + spread * pair.second;
  }
}

void uniform_integers(Twister& engine, int64_t lo, int64_t hi, std::span<double> out) {
  const auto range = static_cast<uint64_t>(hi - lo);
  const uint64_t mask = range == 0 ? 0 : ~uint64_t{0} >> std::countl_zero(range);
  const bool wide = range >> 32 != 0;
  for (double& v : out) {
    uint64_t drawn = 0;
    if (range != 0) {
      do {
        drawn = (wide ? draw64(engine) : engine()) & mask;
      } while (drawn > range);
    }
    v = static_cast<double>(lo + static_cast<int64_t>(drawn));
  }
}

void normal_integers(Twister& engine, double mean, double spread, std::span<double> out) {
  normal_reals(engine, mean, spread, out);
  for (double& v : out) v = std::round(v);
}

}  // namespace mirn2::kernels
