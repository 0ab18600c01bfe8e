// Synthetic signals on a regular time base. i is the sample's index, x and t are time stamps in seconds,
// out takes as many values as it has room for.
//
// Every value is rounded as its formula is written, from left to right, and does not depend on how many
// cores work on it. NaN and infinite parameters go through the arithmetic.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace mirn2::kernels {

// Samples from first to last: trunc((last - first) / step) + 1. Numbers with first < last and step > 0;
// 2^63 stands for that many and more.
uint64_t regular_count(double first, double last, double step);

// i * step + first.
void regular_axis(double first, double step, std::span<double> out);

void constant(double value, std::span<double> out);

// From ymin to ymax while x goes from first to last: ymin before, ymax after,
// (x - first) * ((ymax - ymin) / (last - first)) + ymin between. As many stamps as results.
struct Ramp {
  double first;
  double last;
  double ymin;
  double ymax;
};
void ramp(std::span<const double> x, const Ramp& ramp, std::span<double> out);

// ymin while edge > i * xdiff, then ymax: the edge counts from the first sample.
void step(double edge, double ymin, double ymax, double xdiff, std::span<double> out);

// amplitude * sin(freq * 2 pi * i * xdiff + phase * pi / 180): time counts from the first sample.
struct Sine {
  double freq;
  double phase;  // degrees
  double amplitude;
};
void sine(const Sine& sine, double xdiff, std::span<double> out);

// sin(2 pi * s[i]), s[i] the sum of k * t[j] + freq_start for j = 0 ... i, k = (freq_end - freq_start) / n.
// As many stamps as results.
void chirp(std::span<const double> t, double freq_start, double freq_end, std::span<double> out);

// sin(r) / r with r = sqrt(x^2 + z^2), 1.0 at r = 0; row by row, a row for every z. out has x.size() *
// z.size() elements.
void sinc(std::span<const double> x, std::span<const double> z, std::span<double> out);

}  // namespace mirn2::kernels
