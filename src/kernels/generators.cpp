// Computes synthetic signals on a regular time base.
#include "kernels/generators.h"

#include <algorithm>
#include <cmath>

#include "kernels/axis.h"

namespace mirn2::kernels {

namespace {

constexpr double pi = 3.141592653589793;
constexpr double two_pi = 6.283185307179586;

double real(size_t i) { return static_cast<double>(static_cast<int64_t>(i)); }

}  // namespace

uint64_t regular_count(double first, double last, double step) {
  constexpr double most = 9223372036854775808.0;  // 2^63
  const double steps = std::trunc((last - first) / step);
  return steps < most ? static_cast<uint64_t>(steps) + 1 : static_cast<uint64_t>(most);
}

void regular_axis(double first, double step, std::span<double> out) {
  each(out, [=](size_t i) { return real(i) * step + first; });
}

void constant(double value, std::span<double> out) {
  each(out, [=](size_t) { return value; });
}

void ramp(std::span<const double> x, const Ramp& ramp, std::span<double> out) {
  const double slope = (ramp.ymax - ramp.ymin) / (ramp.last - ramp.first);
  each(out, [=](size_t i) {
    if (x[i] < ramp.first) return ramp.ymin;
    if (x[i] > ramp.last) return ramp.ymax;
    return (x[i] - ramp.first) * slope + ramp.ymin;
  });
}

void step(double edge, double ymin, double ymax, double xdiff, std::span<double> out) {
  each(out, [=](size_t i) { return edge > real(i) * xdiff ? ymin : ymax; });
}

void sine(const Sine& sine, double xdiff, std::span<double> out) {
  const double rate = sine.freq * two_pi;
  const double shift = sine.phase * pi / 180.0;
  const double amplitude = sine.amplitude;
  each(out, [=](size_t i) { return amplitude * std::sin(rate * real(i) * xdiff + shift); });
}

// One running sum gives every sample's sum, to the bit.
void chirp(std::span<const double> t, double freq_start, double freq_end, std::span<double> out) {
  const double k = (freq_end - freq_start) / real(out.size());
  double phase = 0.0;
  for (size_t i = 0; i < out.size(); ++i) out[i] = phase += k * t[i] + freq_start;
  each(out, [=](size_t i) { return std::sin(two_pi * out[i]); });
}

void sinc(std::span<const double> x, std::span<const double> z, std::span<double> out) {
  each(out, [=](size_t i) {
    const double at_x = x[i % x.size()];
    const double at_z = z[i / x.size()];
    const double r = std::sqrt(at_x * at_x + at_z * at_z);
    return r == 0.0 ? 1.0 : std::sin(r) / r;
  });
}

}  // namespace mirn2::kernels
