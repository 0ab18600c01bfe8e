// Random numbers from the 32-bit Mersenne Twister. The sequences are part of the interface: a seed gives
// the same numbers everywhere, those of numpy.random.RandomState(seed).
#pragma once

#include <cstdint>
#include <random>
#include <span>

namespace mirn2::kernels {

// std::mt19937 with words of 32 bits, where the standard library's own has 64: faster, the same numbers.
using Twister = std::mersenne_twister_engine<uint32_t, 32, 624, 397, 31, 0x9908b0df, 11, 0xffffffff, 7,
                                             0x9d2c5680, 15, 0xefc60000, 18, 1812433253>;

// Uniform in [lo, hi): lo + (hi - lo) * u, u from the upper 27 and 26 bits of two draws, as
// RandomState.random_sample makes it. lo and hi are finite, and so is their difference.
void uniform_reals(Twister& engine, double lo, double hi, std::span<double> out);

// mean + spread * g, g standard normal by the polar method, two at a time, as RandomState.normal makes it.
void normal_reals(Twister& engine, double mean, double spread, std::span<double> out);

// Integers from lo to hi, both included, each as likely: the low bits of one draw (of two from 2^32 values
// on), drawn again while they lie outside, as RandomState.randint makes them. lo <= hi, both within 2^53.
void uniform_integers(Twister& engine, int64_t lo, int64_t hi, std::span<double> out);

// The integer nearest to what normal_reals gives, halves away from zero.
void normal_integers(Twister& engine, double mean, double spread, std::span<double> out);

}  // namespace mirn2::kernels
