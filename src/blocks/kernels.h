// The rules of the blocks, in what C11 and C++ have in common: the executor calls them, and the C generator
// quotes those that a model needs, so both compute the same.
//
// One function a paragraph, with no blank line in it. x is what a block stores from sample to sample, k the
// sample's number. Every expression is evaluated as written, in double; kernels.py says the same in Python.
#pragma once

#include <math.h>
#include <stdint.h>

// A value is true unless it equals 0; NaN is true.
static inline double truth(double u) { return u != 0.0 ? 1.0 : 0.0; }

static inline double clip(double a, double lo, double hi) { return a > hi ? hi : (lo > a ? lo : a); }

// Keeps a compiler from working out a library function on its own, with other last bits.
static inline double opaque(double u) {
  volatile double v = u;
  return v;
}

// Toward zero, within whole bounds; NaN gives 0.
static inline double to_whole(double u, double lo, double hi) {
  return u != u ? 0.0 : (double)(int64_t)clip(u, lo, hi);
}

static inline double to_single(double u) { return (double)(float)u; }

static inline double sign(double u) { return (double)((u > 0.0) - (u < 0.0)); }

static inline double modulo(double u, double v) { return fmod(fmod(u, v) + v, v); }

static inline double smallest(const double* u, int n) {
  double y = u[0];
  for (int i = 1; i < n; ++i) y = u[i] < y ? u[i] : y;
  return y;
}

static inline double largest(const double* u, int n) {
  double y = u[0];
  for (int i = 1; i < n; ++i) y = u[i] > y ? u[i] : y;
  return y;
}

// The input that j counts to from 1 on; NaN and what is too small count to the first.
static inline double pick(double j, const double* u, int n) {
  return j != j ? u[0] : u[(int)clip(j, 1.0, (double)n) - 1];
}

static inline uint32_t word32(double u) { return (uint32_t)to_whole(u, 0.0, 4294967295.0); }

static inline double bits_and(double u, double v) { return (double)(word32(u) & word32(v)); }

static inline double bits_or(double u, double v) { return (double)(word32(u) | word32(v)); }

static inline double bits_xor(double u, double v) { return (double)(word32(u) ^ word32(v)); }

static inline double bits_not(double u) { return (double)(uint32_t)~word32(u); }

static inline double shift_left(double u, double v) {
  const uint32_t by = word32(v);
  return by < 32 ? (double)(uint32_t)(word32(u) << by) : 0.0;
}

static inline double shift_right(double u, double v) {
  const uint32_t by = word32(v);
  return by < 32 ? (double)(word32(u) >> by) : 0.0;
}

// The 64-bit word of a recorded value: toward zero, two's complement, within bounds; NaN gives 0.
static inline uint64_t word64(double u) {
  if (u != u) return 0;
  if (u >= 9223372036854775808.0) return (uint64_t)INT64_MAX;
  if (u <= -9223372036854775808.0) return (uint64_t)INT64_MIN;
  return (uint64_t)(int64_t)u;
}

static inline double bit_of(double u, int bit) { return (double)(word64(u) >> bit & 1); }

// Bits lsb to msb of a word, of which msb is at most 62.
static inline double field_unsigned(double u, int msb, int lsb, double gain, double bias) {
  const uint64_t mask = ((uint64_t)1 << (msb + 1)) - 1;
  return (double)(int64_t)((word64(u) & mask) >> lsb) * gain + bias;
}

// Bit msb says that the value is negated.
static inline double field_signed(double u, int msb, int lsb, double gain, double bias) {
  const uint64_t below = ((uint64_t)1 << msb) - 1;
  const double y = (double)(int64_t)((word64(u) & below) >> lsb) * gain + bias;
  return (word64(u) >> msb & 1) != 0 ? -y : y;
}

static inline double field_complement(double u, int msb, int lsb, double gain, double bias) {
  const uint64_t top = (uint64_t)1 << msb;
  const int64_t low = (int64_t)((word64(u) & (top - 1)) >> lsb);
  return (double)(low - (int64_t)((word64(u) & top) >> lsb)) * gain + bias;
}

// Decimal digits of four bits each; one above 9 counts at its face value.
static inline double field_decimal(double u, int msb, int lsb, double gain, double bias) {
  const uint64_t mask = ((uint64_t)1 << (msb + 1)) - 1;
  uint64_t digits = (word64(u) & mask) >> lsb, weight = 1, sum = 0;
  for (; digits != 0; digits >>= 4, weight *= 10) sum += (digits & 15) * weight;
  return (double)(int64_t)sum * gain + bias;
}

static inline double pulse(double k, double first, double on, double period, double value_on,
                           double value_off) {
  if (k < first) return value_off;
  return (double)((uint64_t)(k - first) % (uint64_t)period) < on ? value_on : value_off;
}

// Pseudo-random numbers from 0 to below 1: a 32-bit xorshift generator (Marsaglia 2003, shifts 13, 17, 5).
static inline double uniform(double* x) {
  uint32_t s = (uint32_t)x[0];
  s ^= s << 13;
  s ^= s >> 17;
  s ^= s << 5;
  x[0] = (double)s;
  return (double)s / 4294967296.0;
}

// The last of the n stamps that is not after t, searched for from where the last sample found it.
static inline uint64_t stamp_before(double t, const double* stamps, uint64_t n, double* x) {
  uint64_t i = (uint64_t)x[0];
  while (i + 1 < n && stamps[i + 1] <= t) ++i;
  x[0] = (double)i;
  return i;
}

static inline double series_hold(double t, const double* stamps, const double* values, uint64_t n,
                                 double before, double* x) {
  return t < stamps[0] ? before : values[stamp_before(t, stamps, n, x)];
}

static inline double line(double u, double u0, double u1, double y0, double y1) {
  return y0 + (y1 - y0) * ((u - u0) / (u1 - u0));
}

static inline double series_line(double t, const double* stamps, const double* values, uint64_t n,
                                 double before, double* x) {
  if (t < stamps[0]) return before;
  const uint64_t i = stamp_before(t, stamps, n, x);
  return i + 1 == n ? values[i] : line(t, stamps[i], stamps[i + 1], values[i], values[i + 1]);
}

// The i with b[i] <= u < b[i + 1], or the first or last one that has a neighbour.
static inline uint64_t segment(double u, const double* b, uint64_t n) {
  uint64_t low = 0, high = n - 1;
  while (high - low > 1) {
    const uint64_t middle = low + (high - low) / 2;
    if (b[middle] <= u) {
      low = middle;
    } else {
      high = middle;
    }
  }
  return low;
}

// A table of n points; outside, the outermost lines go on.
static inline double lookup_extend(double u, const double* b, const double* out, uint64_t n) {
  if (n == 1 || u != u) return u != u ? u : out[0];
  const uint64_t i = segment(u, b, n);
  return line(u, b[i], b[i + 1], out[i], out[i + 1]);
}

// A table of n points; outside, the end values hold.
static inline double lookup_clip(double u, const double* b, const double* out, uint64_t n) {
  if (u <= b[0]) return out[0];
  return u >= b[n - 1] ? out[n - 1] : lookup_extend(u, b, out, n);
}

// A table of n rows at the breakpoints r, with m columns at the breakpoints c.
static inline double lookup2_extend(double u, double v, const double* r, const double* c, const double* out,
                                    uint64_t n, uint64_t m) {
  if (n == 1) return lookup_extend(v, c, out, m);
  const uint64_t i = segment(u, r, n);
  return line(u, r[i], r[i + 1], lookup_extend(v, c, out + i * m, m),
              lookup_extend(v, c, out + (i + 1) * m, m));
}

static inline double lookup2_clip(double u, double v, const double* r, const double* c, const double* out,
                                  uint64_t n, uint64_t m) {
  if (n == 1 || u <= r[0]) return lookup_clip(v, c, out, m);
  if (u >= r[n - 1]) return lookup_clip(v, c, out + (n - 1) * m, m);
  const uint64_t i = segment(u, r, n);
  return line(u, r[i], r[i + 1], lookup_clip(v, c, out + i * m, m), lookup_clip(v, c, out + (i + 1) * m, m));
}

// x[0] is the truth of the last sample.
static inline double edge_rising(double u, double* x) {
  const double before = x[0];
  x[0] = truth(u);
  return x[0] > before ? 1.0 : 0.0;
}

static inline double edge_falling(double u, double* x) {
  const double before = x[0];
  x[0] = truth(u);
  return x[0] < before ? 1.0 : 0.0;
}

static inline double edge_either(double u, double* x) {
  const double before = x[0];
  x[0] = truth(u);
  return x[0] != before ? 1.0 : 0.0;
}

// Reset wins.
static inline double latch(double set, double reset, double* x) {
  x[0] = reset != 0.0 ? 0.0 : (set != 0.0 ? 1.0 : x[0]);
  return x[0];
}

// x[0] is the count, x[1] the truth of the last input.
static inline double count_edges(double u, double reset, double by, double first, double lo, double hi,
                                 double* x) {
  const int rises = u != 0.0 && x[1] == 0.0;
  x[1] = truth(u);
  if (reset != 0.0) {
    x[0] = first;
  } else if (rises) {
    x[0] = x[0] + by > hi ? lo : x[0] + by;
  }
  return x[0];
}

// True once u has been true for `on` samples, false once it has been false for `off`. x[0] is the truth of
// the last sample, x[1] and x[2] the samples in which u became true and false.
static inline double debounce(double u, double k, double on, double off, double* x) {
  const double before = x[0];
  x[0] = truth(u);
  if (k == 0.0) return 0.0;
  if (u != 0.0) {
    if (before == 0.0) x[1] = k;
    return k - x[1] >= on ? 1.0 : 0.0;
  }
  if (before != 0.0) x[2] = k;
  return off > k - x[2] ? 1.0 : 0.0;
}

static inline double dead_zone(double u, double lo, double hi) {
  return u > hi ? u - hi : (u < lo ? u - lo : 0.0);
}

// `up` and `down` are the largest steps of one sample.
static inline double rate_limit(double u, double up, double down, double* x) {
  const double d = u - x[0];
  x[0] = d > up ? x[0] + up : (d < -down ? x[0] - down : u);
  return x[0];
}

static inline double relay(double u, double lo, double hi, double on, double off, double* x) {
  if (u > hi) x[0] = 1.0;
  if (u < lo) x[0] = 0.0;
  return x[0] != 0.0 ? on : off;
}

static inline double quantize(double u, double step) { return step * round(u / step); }

static inline double hold(double u, double take, double* x) {
  if (take != 0.0) x[0] = u;
  return x[0];
}

// Takes the input in every `period`-th sample.
static inline double hold_every(double u, double k, double period, double* x) {
  if ((uint64_t)k % (uint64_t)period == 0) x[0] = u;
  return x[0];
}

// A ring of `count` numbers in x[1] and up; x[0] is the place of the oldest.
static inline double delay_read(const double* x) { return x[1 + (uint64_t)x[0]]; }

static inline void delay_write(double u, double count, double* x) {
  x[1 + (uint64_t)x[0]] = u;
  x[0] = x[0] + 1.0 < count ? x[0] + 1.0 : 0.0;
}

static inline double integrate_backward(double u, double gain, double lo, double hi, double* x) {
  x[0] = clip(x[0] + gain * u, lo, hi);
  return x[0];
}

// x[1] is the last input; `half` is half the gain of a sample.
static inline double integrate_trapezoidal(double u, double k, double half, double lo, double hi, double* x) {
  if (k != 0.0) x[0] = clip(x[0] + half * (u + x[1]), lo, hi);
  x[1] = u;
  return x[0];
}

static inline double derivative(double u, double k, double gain, double ts, double first, double* x) {
  const double y = k == 0.0 ? first : gain * ((u - x[0]) / ts);
  x[0] = u;
  return y;
}

static inline double low_pass(double u, double k, double keep, double take, double* x) {
  x[0] = k == 0.0 ? u : keep * x[0] + take * u;
  return x[0];
}

// x[1] is the last input.
static inline double high_pass(double u, double k, double keep, double* x) {
  x[0] = k == 0.0 ? u : keep * ((x[0] + u) - x[1]);
  x[1] = u;
  return x[0];
}

static inline double first_order(double u, double a, double b, double* x) {
  x[0] = a * x[0] + b * u;
  return x[0];
}

// x[0] is the integral part, which rests while it would drive the output further beyond a limit; x[1] is the
// last input.
static inline double pid(double u, double k, double kp, double ki_ts, double kd, double ts, double lo,
                         double hi, double* x) {
  const double d = k == 0.0 ? 0.0 : kd * ((u - x[1]) / ts);
  const double w = kp * u + x[0] + d;
  const double q = ki_ts * u;
  x[1] = u;
  if (!((w > hi && q > 0.0) || (w < lo && q < 0.0))) x[0] = x[0] + q;
  return clip(w, lo, hi);
}
