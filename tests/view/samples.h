// Random samples of every awkward kind for the tests of the view.
#pragma once

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

struct TestSamples {
  std::string name;
  std::vector<double> x, y;
};

// Stamps ascend in steps of 0 to 2, some alike; values are a random walk with NaN, infinities and spikes.
inline TestSamples random_samples(size_t n, unsigned seed, bool clean = false) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> uniform(0, 1);
  TestSamples result{"n=" + std::to_string(n) + " seed=" + std::to_string(seed), {}, {}};
  double t = -5, value = 0;
  for (size_t i = 0; i < n; ++i) {
    const double kind = uniform(random);
    t += kind < 0.1 ? 0 : kind > 0.99 ? 200 * uniform(random) : 2 * uniform(random);
    value += uniform(random) - 0.5;
    double y = value;
    if (!clean) {
      if (kind > 0.97) y = std::numeric_limits<double>::quiet_NaN();
      if (kind > 0.985) y = std::numeric_limits<double>::infinity();
      if (kind > 0.99) y = -std::numeric_limits<double>::infinity();
      if (kind > 0.995) y = 1e6 * uniform(random);
    }
    result.x.push_back(t);
    result.y.push_back(y);
  }
  return result;
}

// The same value, NaN like NaN.
inline bool alike(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }
