// Kinds that remember: edges, counts, persistence, delays.
#include <algorithm>

#include "blocks/kind.h"

namespace plexo {

namespace {

using enum Property;

constexpr double longest_delay = 1000000;

constexpr std::string_view edges[] = {"rising", "falling", "either"};
constexpr Op edge_ops[] = {Op::edge_rising, Op::edge_falling, Op::edge_either};

double truth_of(const Values& v, Property property) { return v.number(property) != 0.0 ? 1.0 : 0.0; }

void lower_edge(const Values& v, Lowered& to) {
  to.become(edge_ops[v.choice(operation)]);
  to.states = {truth_of(v, initial_value)};
}

void lower_latch(const Values& v, Lowered& to) {
  to.become(Op::latch);
  to.states = {truth_of(v, initial_value)};
}

void lower_counter(const Values& v, Lowered& to) {
  to.become(Op::count_edges, {v.number(coeff_a), v.number(initial_value), v.number(min), v.number(max)});
  to.states = {v.number(initial_value), 0.0};
}

void lower_debounce(const Values& v, Lowered& to) {
  to.become(Op::debounce, {v.samples_in(time_on), v.samples_in(time_off)});
  to.states = {0.0, 0.0, 0.0};
}

void lower_relay(const Values& v, Lowered& to) {
  to.become(Op::relay, {v.number(min), v.number(max), v.number(value_on), v.number(value_off)});
  to.states = {truth_of(v, initial_value)};
}

double delay_length(const Values& v) { return std::max(1.0, v.samples_in(time_on)); }

std::optional<Property> check_delay(const Values& v) {
  if (delay_length(v) > longest_delay) return time_on;
  return std::nullopt;
}

void lower_delay(const Values& v, Lowered& to) {
  to.become(Op::delay, {delay_length(v)});
  to.next = Op::delay_next;
  to.states = {0.0};
  to.fill_count = static_cast<uint64_t>(delay_length(v));
  to.fill_value = v.number(initial_value);
}

void lower_hold(const Values& v, Lowered& to) {
  to.become(Op::hold);
  if (v.has(step_time)) to.become(Op::hold_every, {std::max(1.0, v.samples_in(step_time))});
  to.states = {v.number(initial_value)};
}

}  // namespace

Kinds memory_kinds() {
  return {
      {.type = "edge",
       .family = "Memory",
       .ports = {1, 1},
       .numbers = {{initial_value, 0}},
       .texts = {{.property = operation, .choices = edges}},
       .lower = lower_edge,
       .rule =
           "the truth of u against that of the last sample, first that of initialValue; y = 1 in the sample "
           "of such a change"},
      {.type = "latch",
       .family = "Memory",
       .ports = {2, 1},
       .numbers = {{initial_value, 0}},
       .lower = lower_latch,
       .rule =
           "set u1, reset u2: y = u2 true → 0 : (u1 true → 1 : x); x⁺ = y; x first = truth of initialValue"},
      {.type = "counter",
       .family = "Memory",
       .ports = {2, 1},
       .numbers = {{coeff_a, 1}, {initial_value, 0}, {min, 0}, {max, infinity, any}},
       .lower = lower_counter,
       .rule = "u2 true → y = initialValue; else u1 rising (its truth is false before the first sample) → c "
               "= x + "
               "coeffA, y = c > max → min : c; else y = x. x⁺ = y, x first = initialValue"},
      {.type = "debounce",
       .family = "Memory",
       .ports = {1, 1},
       .numbers = {{time_on, 0}, {time_off, 0}},
       .lower = lower_debounce,
       .rule = "as `kvalo.debounce`, in samples: k = 0 → y = 0 and marks a = b = 0. u true: u was false → a "
               "= k; y "
               "= k − a ≥ N(timeOn). u false: u was true → b = k; y = N(timeOff) > k − b"},
      {.type = "relay",
       .family = "Memory",
       .ports = {1, 1},
       .numbers = {{min, 0}, {max, 0}, {value_on, 1}, {value_off, 0}, {initial_value, 0}},
       .lower = lower_relay,
       .rule =
           "u > max → on; then u < min → off; y = on → valueOn : valueOff; on first = truth of initialValue"},
      {.type = "hold",
       .family = "Memory",
       .ports_of =
           [](const Values& v) {
             return Ports{v.has(step_time) ? 1u : 2u, 1};
           },
       .numbers = {{initial_value, 0}, {step_time, 0, finite, Default::none}},
       .lower = lower_hold,
       .rule = "y = u2 true → u1 : x. With `stepTime`, a period, there is no u2 and the condition is k mod "
               "max(1, "
               "N(stepTime)) = 0, for slower rates within a model. x⁺ = y; x first = initialValue"},
      {.type = "delay",
       .family = "Memory",
       .ports = {1, 1},
       .numbers = {{time_on, 0, finite, Default::one_sample}, {initial_value, 0}},
       .check = check_delay,
       .lower = lower_delay,
       .rule = "M = max(1, N(timeOn)), at most 1000000; y at k = k < M → initialValue : u at k − M"},
  };
}

}  // namespace plexo
