// The loop that runs a program: one pass over its records per sample, without a call or an allocation.
#include <cmath>

#include "blocks/exec.h"
#include "blocks/kernels.h"

namespace plexo {

namespace {

// The inputs of an operation with any number of them, side by side.
struct Operands {
  double u[most_inputs];

  Operands(const double* signals, const uint32_t* operands, unsigned count) {
    u[0] = signals[operands[0]];  // there always is one
    for (unsigned i = 1; i < count; ++i) u[i] = signals[operands[i]];
  }
};

double sum(const double* u, const double* signs, unsigned n) {
  double y = signs[0] * u[0];
  for (unsigned i = 1; i < n; ++i) y += signs[i] * u[i];
  return y;
}

// divides[i] tells whether input i is divided by.
double product(const double* u, const double* divides, unsigned n) {
  double y = divides[0] != 0.0 ? 1.0 / u[0] : u[0];
  for (unsigned i = 1; i < n; ++i) y = divides[i] != 0.0 ? y / u[i] : y * u[i];
  return y;
}

unsigned count_true(const double* u, unsigned n) {
  unsigned count = 0;
  for (unsigned i = 0; i < n; ++i) count += u[i] != 0.0;
  return count;
}

double number(bool b) { return b ? 1.0 : 0.0; }

}  // namespace

// A record's operation is done for as long as the next record has the same one, so that the branch
// predictor has to guess at the ends of such runs only.
#define RULE(name, expression)          \
  case Op::name:                        \
    do {                                \
      s[step->out] = (expression);      \
    } while ((++step)->op == Op::name); \
    continue;
#define NEXT(name, statement)           \
  case Op::name:                        \
    do {                                \
      statement;                        \
    } while ((++step)->op == Op::name); \
    continue;
#define U1 s[step->in[0]]
#define U2 s[step->in[1]]
#define U3 s[step->in[2]]
#define P(i) p[step->parameter + (i)]
#define X (s + step->state)
#define N step->count
#define ALL Operands(s, operands + step->in[0], N).u
#define TABLE(i) tables[step->table + (i)].data()
#define SIZE(i) tables[step->table + (i)].size()

Ended run_samples(const Program& program, const Times& times, uint64_t samples, Run& run,
                  Recorder& recorder) {
  double* const s = run.numbers.data();
  const double* const p = program.parameters.data();
  const uint32_t* const operands = program.operands.data();
  const auto* const tables = program.tables.data();
  const uint64_t end = run.next_sample + samples;
  for (; run.next_sample < end; ++run.next_sample) {
    const double k = static_cast<double>(run.next_sample);
    const double t = times.ti + k * times.ts;
    const Step* step = program.steps.data();
    bool stops = false;
    for (bool goes_on = true; goes_on;) {
      switch (step->op) {
        RULE(step, k < P(0) ? P(1) : P(2))
        RULE(ramp, k < P(0) ? P(1) : P(1) + P(2) * ((k - P(0)) * P(3)))
        RULE(sine, P(0) * sin(P(1) * t + P(2)) + P(3))
        RULE(sweep, P(0) * sin(6.283185307179586 * ((P(1) + P(2) * (k * P(3))) * (k * P(3)))))
        RULE(pulse, pulse(k, P(0), P(1), P(2), P(3), P(4)))
        RULE(random, P(0) + P(1) * uniform(X))
        RULE(clock, t)
        RULE(series_hold, series_hold(t, TABLE(0), TABLE(1), SIZE(0), P(0), X))
        RULE(series_line, series_line(t, TABLE(0), TABLE(1), SIZE(0), P(0), X))
        RULE(copy, U1)
        RULE(gain, P(0) * U1)
        RULE(linear, P(0) * U1 + P(1))
        RULE(add, U1 + U2)
        RULE(subtract, U1 - U2)
        RULE(sum, sum(ALL, &P(0), N))
        RULE(multiply, U1 * U2)
        RULE(product, product(ALL, &P(0), N))
        RULE(absolute, fabs(U1))
        RULE(negate, -U1)
        RULE(sign, sign(U1))
        RULE(square, U1 * U1)
        RULE(root, sqrt(U1))
        RULE(exponential, exp(U1))
        RULE(logarithm, log(U1))
        RULE(logarithm10, log10(U1))
        RULE(sin, sin(U1))
        RULE(cos, cos(U1))
        RULE(tan, tan(U1))
        RULE(asin, asin(U1))
        RULE(acos, acos(U1))
        RULE(atan, atan(U1))
        RULE(floor, floor(U1))
        RULE(ceil, ceil(U1))
        RULE(trunc, trunc(U1))
        RULE(round, round(U1))
        RULE(atan2, atan2(U1, U2))
        RULE(power, pow(U1, U2))
        RULE(modulo, modulo(U1, U2))
        RULE(hypot, sqrt(U1 * U1 + U2 * U2))
        RULE(smallest, smallest(ALL, N))
        RULE(largest, largest(ALL, N))
        RULE(equal, number(U1 == U2))
        RULE(not_equal, number(U1 != U2))
        RULE(less, number(U1 < U2))
        RULE(less_equal, number(U1 <= U2))
        RULE(greater, number(U1 > U2))
        RULE(greater_equal, number(U1 >= U2))
        RULE(equal_to, number(U1 == P(0)))
        RULE(not_equal_to, number(U1 != P(0)))
        RULE(less_than, number(U1 < P(0)))
        RULE(at_most, number(U1 <= P(0)))
        RULE(greater_than, number(U1 > P(0)))
        RULE(at_least, number(U1 >= P(0)))
        RULE(within, number(!(P(0) > U1 || U1 > P(1))))
        RULE(all_of, number(count_true(ALL, N) == N))
        RULE(any_of, number(count_true(ALL, N) != 0))
        RULE(odd_of, number(count_true(ALL, N) % 2 != 0))
        RULE(not_all_of, number(count_true(ALL, N) != N))
        RULE(none_of, number(count_true(ALL, N) == 0))
        RULE(bits_and, bits_and(U1, U2))
        RULE(bits_or, bits_or(U1, U2))
        RULE(bits_xor, bits_xor(U1, U2))
        RULE(shift_left, shift_left(U1, U2))
        RULE(shift_right, shift_right(U1, U2))
        RULE(bits_not, bits_not(U1))
        RULE(switched, U2 >= P(0) ? U1 : U3)
        RULE(pick, pick(s[operands[step->in[0]]], Operands(s, operands + step->in[0] + 1, N - 1u).u, N - 1))
        RULE(to_single, to_single(U1))
        RULE(truth, truth(U1))
        RULE(to_whole, to_whole(U1, P(0), P(1)))
        RULE(field_unsigned, field_unsigned(U1, static_cast<int>(P(0)), static_cast<int>(P(1)), P(2), P(3)))
        RULE(field_signed, field_signed(U1, static_cast<int>(P(0)), static_cast<int>(P(1)), P(2), P(3)))
        RULE(field_complement,
             field_complement(U1, static_cast<int>(P(0)), static_cast<int>(P(1)), P(2), P(3)))
        RULE(field_decimal, field_decimal(U1, static_cast<int>(P(0)), static_cast<int>(P(1)), P(2), P(3)))
        NEXT(bits, {
          for (int i = 0; i < N; ++i)
            s[step->out + static_cast<unsigned>(i)] = bit_of(U1, static_cast<int>(P(0)) + i);
        })
        RULE(edge_rising, edge_rising(U1, X))
        RULE(edge_falling, edge_falling(U1, X))
        RULE(edge_either, edge_either(U1, X))
        RULE(latch, latch(U1, U2, X))
        RULE(count_edges, count_edges(U1, U2, P(0), P(1), P(2), P(3), X))
        RULE(debounce, debounce(U1, k, P(0), P(1), X))
        RULE(relay, relay(U1, P(0), P(1), P(2), P(3), X))
        RULE(hold, hold(U1, U2, X))
        RULE(hold_every, hold_every(U1, k, P(0), X))
        RULE(delay, delay_read(X))
        RULE(clip, clip(U1, P(0), P(1)))
        RULE(dead_zone, dead_zone(U1, P(0), P(1)))
        RULE(rate_limit, rate_limit(U1, P(0), P(1), X))
        RULE(quantize, quantize(U1, P(0)))
        RULE(lookup_clip, lookup_clip(U1, TABLE(0), TABLE(1), SIZE(0)))
        RULE(lookup_extend, lookup_extend(U1, TABLE(0), TABLE(1), SIZE(0)))
        RULE(lookup2_clip, lookup2_clip(U1, U2, TABLE(0), TABLE(1), TABLE(2), SIZE(0), SIZE(1)))
        RULE(lookup2_extend, lookup2_extend(U1, U2, TABLE(0), TABLE(1), TABLE(2), SIZE(0), SIZE(1)))
        RULE(stored, X[0])
        RULE(integrate_backward, integrate_backward(U1, P(0), P(1), P(2), X))
        RULE(integrate_trapezoidal, integrate_trapezoidal(U1, k, P(0), P(1), P(2), X))
        RULE(derivative, derivative(U1, k, P(0), P(1), P(2), X))
        RULE(low_pass, low_pass(U1, k, P(0), P(1), X))
        RULE(high_pass, high_pass(U1, k, P(0), X))
        RULE(first_order, first_order(U1, P(0), P(1), X))
        RULE(pid, pid(U1, k, P(0), P(1), P(2), P(3), P(4), P(5), X))
        NEXT(require, {
          if (U1 == 0.0) return Ended::failed;
        })
        NEXT(stop, stops |= U1 != 0.0)
        NEXT(delay_next, delay_write(U1, P(0), X))
        NEXT(integral_next, X[0] = clip(X[0] + P(0) * U1, P(1), P(2)))
        NEXT(lag_next, X[0] = P(0) * X[0] + P(1) * U1)
        case Op::end_of_outputs:
          recorder.take(s);
          ++step;
          continue;
        case Op::constant:
        case Op::external:
        case Op::end_of_sample:
          goes_on = false;
      }
    }
    if (stops) return Ended::well;
  }
  return Ended::not_yet;
}

}  // namespace plexo
