// Kinds that limit a signal in value, rate or resolution.
#include "blocks/kind.h"

namespace plexo {

Kinds limit_kinds() {
  using enum Property;
  return {
      {.type = "saturation",
       .family = "Limits",
       .ports = {1, 1},
       .numbers = {{min, -infinity, any}, {max, infinity, any}},
       .lower =
           [](const Values& v, Lowered& to) {
             to.become(Op::clip, {v.number(min), v.number(max)});
           },
       .rule = "y = clip(u, min, max)"},
      {.type = "deadzone",
       .family = "Limits",
       .ports = {1, 1},
       .numbers = {{min, 0}, {max, 0}},
       .lower =
           [](const Values& v, Lowered& to) {
             to.become(Op::dead_zone, {v.number(min), v.number(max)});
           },
       .rule = "y = u > max → u − max : (u < min → u − min : 0)"},
      {.type = "ratelimit",
       .family = "Limits",
       .ports = {1, 1},
       .numbers = {{rise, infinity, not_negative_any},
                   {fall, infinity, not_negative_any},
                   {initial_value, 0}},
       .lower =
           [](const Values& v, Lowered& to) {
             to.become(Op::rate_limit, {v.number(rise) * v.times().ts, v.number(fall) * v.times().ts});
             to.states = {v.number(initial_value)};
           },
       .rule = "rates per second: {R = rise·ts; F = fall·ts} d = u − x; y = d > R → x + R : (d < −F → x − F "
               ": u); "
               "x⁺ = y; x first = initialValue"},
      {.type = "quantizer",
       .family = "Limits",
       .ports = {1, 1},
       .numbers = {{coeff_a, 1, positive}},
       .lower = [](const Values& v, Lowered& to) { to.become(Op::quantize, {v.number(coeff_a)}); },
       .rule = "y = coeffA·round(u/coeffA)"},
  };
}

}  // namespace plexo
