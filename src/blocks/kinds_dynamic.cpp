// Kinds with dynamics: integrators, derivatives, filters, controllers.
#include <algorithm>
#include <cmath>

#include "blocks/kernels.h"
#include "blocks/kind.h"

namespace plexo {

namespace {

using enum Property;

constexpr std::string_view rules[] = {"forward", "backward", "trapezoidal"};

void lower_integrator(const Values& v, Lowered& to) {
  const double gain = v.number(coeff_a) * v.times().ts, low = v.number(min), high = v.number(max);
  to.states = {clip(v.number(initial_value), low, high)};
  switch (v.choice(type)) {
    case 1:
      return to.become(Op::integrate_backward, {gain, low, high});
    case 2:
      to.states.push_back(0.0);
      return to.become(Op::integrate_trapezoidal, {gain * 0.5, low, high});
    default:
      to.next = Op::integral_next;
      return to.become(Op::stored, {gain, low, high});
  }
}

void lower_derivative(const Values& v, Lowered& to) {
  to.become(Op::derivative, {v.number(coeff_a), v.times().ts, v.number(initial_value)});
  to.states = {0.0};
}

void lower_lag(const Values& v, Lowered& to) {
  const double a = std::exp(-v.times().ts / v.number(coeff_a));
  to.become(Op::stored, {a, v.number(coeff_b) * (1.0 - a)});
  to.next = Op::lag_next;
  to.states = {v.number(initial_value)};
}

void lower_lowpass(const Values& v, Lowered& to) {
  const double alpha = v.times().ts / (v.times().ts + v.number(coeff_a));
  to.become(Op::low_pass, {1.0 - alpha, alpha});
  to.states = {0.0};
}

void lower_highpass(const Values& v, Lowered& to) {
  to.become(Op::high_pass, {v.number(coeff_a) / (v.times().ts + v.number(coeff_a))});
  to.states = {0.0, 0.0};
}

void lower_discrete(const Values& v, Lowered& to) {
  to.become(Op::first_order, {v.number(coeff_a), v.number(coeff_b)});
  to.states = {v.number(initial_value)};
}

void lower_pid(const Values& v, Lowered& to) {
  const double ts = v.times().ts;
  to.become(Op::pid, {v.number(expression), v.number(coeff_a) * ts, v.number(coeff_b), ts, v.number(min),
                      v.number(max)});
  to.states = {v.number(initial_value), 0.0};
}

}  // namespace

Kinds dynamic_kinds() {
  return {
      {.type = "integrator",
       .family = "Dynamics",
       .ports = {1, 1},
       .numbers = {{coeff_a, 1}, {initial_value, 0}, {min, -infinity, any}, {max, infinity, any}},
       .texts = {{.property = type, .choices = rules}},
       .lower = lower_integrator,
       .rule =
           "{g = coeffA·ts} x first = clip(initialValue). forward: y = x, x⁺ = clip(x + g·u). backward: y = "
           "clip(x + g·u), x⁺ = y. trapezoidal: y = k = 0 → x : clip(x + (g·0.5)·(u + v)), x⁺ = y. Clipping "
           "the state is the anti-windup"},
      {.type = "derivative",
       .family = "Dynamics",
       .ports = {1, 1},
       .numbers = {{coeff_a, 1}, {initial_value, 0}},
       .lower = lower_derivative,
       .rule = "y = k = 0 → initialValue : coeffA·((u − v)/ts)"},
      {.type = "lag",
       .family = "Dynamics",
       .ports = {1, 1},
       .numbers = {{coeff_a, 1, positive}, {coeff_b, 1}, {initial_value, 0}},
       .lower = lower_lag,
       .rule =
           "time constant coeffA, gain coeffB: {a = exp(−ts/coeffA); b = coeffB·(1 − a)} y = x, x⁺ = a·x + "
           "b·u, x first = initialValue: exact for an input that is held over each sample"},
      {.type = "lowpass",
       .family = "Dynamics",
       .ports = {1, 1},
       .numbers = {{coeff_a, 1, not_negative}},
       .lower = lower_lowpass,
       .rule = "{α = ts/(ts + coeffA)} y = k = 0 → u : (1 − α)·x + α·u; x⁺ = y"},
      {.type = "highpass",
       .family = "Dynamics",
       .ports = {1, 1},
       .numbers = {{coeff_a, 1, not_negative}},
       .lower = lower_highpass,
       .rule = "{α = coeffA/(ts + coeffA)} y = k = 0 → u : α·((x + u) − v); x⁺ = y"},
      {.type = "discrete",
       .family = "Dynamics",
       .ports = {1, 1},
       .numbers = {{coeff_a, 0}, {coeff_b, 1}, {initial_value, 0}},
       .lower = lower_discrete,
       .rule = "y = coeffA·x + coeffB·u; x⁺ = y; x first = initialValue"},
      {.type = "pid",
       .family = "Dynamics",
       .ports = {1, 1},
       .numbers = {{expression, 1},
                   {coeff_a, 0},
                   {coeff_b, 0},
                   {min, -infinity, any},
                   {max, infinity, any},
                   {initial_value, 0}},
       .lower = lower_pid,
       .rule =
           "gains expression, coeffA (of the integral), coeffB (of the derivative): {q = coeffA·ts} d = k = "
           "0 "
           "→ 0 : coeffB·((u − v)/ts); w = expression·u + x + d; y = clip(w, min, max); x⁺ = x + q·u, except "
           "x⁺ = x when w > max and q·u > 0 or w < min and q·u < 0; x first = initialValue"},
  };
}

}  // namespace plexo
