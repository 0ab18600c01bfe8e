// Kinds that make signals out of time alone.
#include <cmath>

#include "blocks/kind.h"

namespace plexo {

namespace {

using enum Property;

constexpr double two_pi = 6.283185307179586;
constexpr double pi = 3.141592653589793;
constexpr double first_seed = 2463534242.0;  // in place of 0, from which the generator would not move

constexpr std::string_view series_types[] = {"zoh", "linear"};

std::optional<Property> check_pulse(const Values& v) {
  if (v.samples_in(time_on) + v.samples_in(time_off) == 0.0) return time_on;
  return std::nullopt;
}

std::optional<Property> check_series(const Values& v) {
  const auto& series = v.series();
  if (series == nullptr || series->x.empty() || series->x.size() != series->y.size()) return obj;
  double last = -infinity;
  for (const double stamp : series->x) {
    if (!(stamp >= last)) return obj;  // NaN too
    last = stamp;
  }
  return std::nullopt;
}

void lower_sine(const Values& v, Lowered& to) {
  to.become(Op::sine, {v.number(coeff_a), two_pi * v.number(frequency), v.number(phase) * pi / 180.0,
                       v.number(coeff_b)});
}

void lower_sweep(const Values& v, Lowered& to) {
  const double rate = (v.number(final_value) - v.number(initial_value)) / v.number(time_on);
  to.become(Op::sweep, {v.number(coeff_a), v.number(initial_value), 0.5 * rate, v.times().ts});
}

void lower_pulse(const Values& v, Lowered& to) {
  const double on = v.samples_in(time_on);
  to.become(Op::pulse, {v.sample_of(step_time), on, on + v.samples_in(time_off), v.number(value_on),
                        v.number(value_off)});
}

void lower_random(const Values& v, Lowered& to) {
  to.become(Op::random, {v.number(min), v.number(max) - v.number(min)});
  to.states = {v.number(seed) == 0.0 ? first_seed : v.number(seed)};
}

void lower_series(const Values& v, Lowered& to) {
  to.become(v.choice(type) == 0 ? Op::series_hold : Op::series_line, {v.number(initial_value)});
  to.kept_alive = v.series();
  to.tables = {to.kept_alive->x.span(), to.kept_alive->y.span()};
  to.states = {0.0};
}

}  // namespace

Kinds source_kinds() {
  return {
      {.type = "const",
       .family = "Sources",
       .ports = {0, 1},
       .numbers = {{expression, 0}},
       .lists = {{obj, Shape::number, false}},
       .lower = [](const Values& v,
                   Lowered& to) { to.become(Op::constant, {v.number(v.has(obj) ? obj : expression)}); },
       .rule = "y = `obj` where it is given, a number or a text, else `expression`"},
      {.type = "step",
       .family = "Sources",
       .ports = {0, 1},
       .numbers = {{step_time, 0}, {initial_value, 0}, {final_value, 1}},
       .lower =
           [](const Values& v, Lowered& to) {
             to.become(Op::step, {v.sample_of(step_time), v.number(initial_value), v.number(final_value)});
           },
       .rule = "y = k < K(stepTime) → initialValue : finalValue"},
      {.type = "ramp",
       .family = "Sources",
       .ports = {0, 1},
       .numbers = {{step_time, 0}, {coeff_a, 1}, {initial_value, 0}},
       .lower =
           [](const Values& v, Lowered& to) {
             to.become(Op::ramp,
                       {v.sample_of(step_time), v.number(initial_value), v.number(coeff_a), v.times().ts});
           },
       .rule = "y = k < K → initialValue : initialValue + coeffA·((k − K)·ts), where K = K(stepTime)"},
      {.type = "sine",
       .family = "Sources",
       .ports = {0, 1},
       .numbers = {{frequency, 1}, {phase, 0}, {coeff_a, 1}, {coeff_b, 0}},
       .lower = lower_sine,
       .rule = "{w = 6.283185307179586·frequency; h = phase·3.141592653589793/180} y = coeffA·sin(w·t + h) + "
               "coeffB"},
      {.type = "sweep",
       .family = "Sources",
       .ports = {0, 1},
       .numbers =
           {{initial_value, 0}, {final_value, 10}, {time_on, 0, positive, Default::whole_run}, {coeff_a, 1}},
       .lower = lower_sweep,
       .rule = "frequency from initialValue to finalValue within timeOn: {r = (finalValue − "
               "initialValue)/timeOn} τ = k·ts; y = coeffA·sin(6.283185307179586·((initialValue + "
               "(0.5·r)·τ)·τ))"},
      {.type = "pulse",
       .family = "Sources",
       .ports = {0, 1},
       .numbers = {{time_on, 1}, {time_off, 1}, {value_on, 1}, {value_off, 0}, {step_time, 0}},
       .check = check_pulse,
       .lower = lower_pulse,
       .rule = "before sample K(stepTime) valueOff; from it on N(timeOn) samples valueOn, N(timeOff) samples "
               "valueOff, again and again"},
      {.type = "random",
       .family = "Sources",
       .ports = {0, 1},
       .numbers = {{seed, 1, whole(0, 4294967295.0)}, {min, 0}, {max, 1}},
       .lower = lower_random,
       .rule =
           "32-bit s, first = seed (0 → 2463534242); in each sample s ^= s<<13, s ^= s>>17, s ^= s<<5, then "
           "y = min + (max − min)·(s·2^−32)"},
      {.type = "clock",
       .family = "Sources",
       .ports = {0, 1},
       .lower = [](const Values&, Lowered& to) { to.become(Op::clock); },
       .rule = "y = t"},
      {.type = "series",
       .family = "Sources",
       .ports = {0, 1},
       .numbers = {{initial_value, 0}},
       .texts = {{.property = type, .choices = series_types}},
       .lists = {{obj, Shape::series}},
       .check = check_series,
       .lower = lower_series,
       .rule =
           "before the first stamp initialValue; \"zoh\": the value of the last stamp ≤ t; \"linear\": y0 + "
           "(y1 − y0)·((t − t0)/(t1 − t0)), after the last stamp its value"},
  };
}

}  // namespace plexo
