// The discrete Fourier transform of real samples, of any length.
//
// X[k] = sum over j of x[j] * exp(-2 * pi * i * j * k / n). Even lengths are done as one complex transform
// of half the length (Cooley, Lewis & Welch 1970); lengths with a large prime factor as a convolution with a
// chirp (Bluestein 1970). About n * log(n) operations and some 100 bytes a sample at most, on all cores.
#pragma once

#include <span>

namespace mirn3::dsp {

// Absolute values of X[0] ... X[n / 2] (n / 2 rounded down); `out` has that many. n >= 1. The squares of
// the results must fit into a double. Throws std::bad_alloc.
void dft_magnitudes(std::span<const double> x, std::span<double> out);

}  // namespace mirn3::dsp
