// Kinds that compare, decide and choose.
#include "blocks/kind.h"

namespace plexo {

namespace {

using enum Property;

constexpr Op relations[] = {Op::equal,      Op::not_equal, Op::less,
                            Op::less_equal, Op::greater,   Op::greater_equal};
constexpr Op comparisons_with[] = {Op::equal_to, Op::not_equal_to, Op::less_than,
                                   Op::at_most,  Op::greater_than, Op::at_least};

constexpr std::string_view connectives[] = {"and", "or", "xor", "nand", "nor", "not"};
constexpr Op connective_ops[] = {Op::all_of,     Op::any_of,  Op::odd_of,
                                 Op::not_all_of, Op::none_of, Op::none_of};

bool is_not(const Values& v) { return v.text(operation) == "not"; }

Ports logic_ports(const Values& v) {
  if (is_not(v) && !v.has(inport_count)) return {1, 1};
  return {static_cast<unsigned>(v.number(inport_count)), 1};
}

std::optional<Property> check_logic(const Values& v) {
  if (is_not(v) && logic_ports(v).inputs != 1) return inport_count;
  return std::nullopt;
}

}  // namespace

Kinds logic_kinds() {
  return {
      {.type = "relational",
       .family = "Logic",
       .ports = {2, 1},
       .texts = {{.property = operation, .choices = comparisons}},
       .lower = [](const Values& v, Lowered& to) { to.become(relations[v.choice(operation)]); },
       .rule = "y = u1 op u2"},
      {.type = "compare",
       .family = "Logic",
       .ports = {1, 1},
       .numbers = {{expression, 0}},
       .texts = {{.property = operation, .choices = comparisons}},
       .lower = [](const Values& v,
                   Lowered& to) { to.become(comparisons_with[v.choice(operation)], {v.number(expression)}); },
       .rule = "y = u op expression"},
      {.type = "inrange",
       .family = "Logic",
       .ports = {1, 1},
       .numbers = {{min, -infinity, any}, {max, infinity, any}},
       .lower =
           [](const Values& v, Lowered& to) {
             to.become(Op::within, {v.number(min), v.number(max)});
           },
       .rule = "y = not (min > u or u > max): the bounds and NaN are in range"},
      {.type = "logic",
       .family = "Logic",
       .ports_of = logic_ports,
       .numbers = {{inport_count, 2, whole(1, most_inputs), Default::by_kind}},
       .texts = {{.property = operation, .choices = connectives}},
       .check = check_logic,
       .lower = [](const Values& v, Lowered& to) { to.become(connective_ops[v.choice(operation)]); },
       .rule =
           "on truth values; \"xor\" is 1 for an odd number of true inputs. `inportCount` is 1 for \"not\", "
           "else 2"},
      {.type = "switch",
       .family = "Logic",
       .ports = {3, 1},
       .numbers = {{coeff_a, 0.5}},
       .lower = [](const Values& v, Lowered& to) { to.become(Op::switched, {v.number(coeff_a)}); },
       .rule = "y = u2 >= coeffA → u1 : u3"},
      {.type = "select",
       .family = "Logic",
       .ports_of =
           [](const Values& v) {
             return Ports{static_cast<unsigned>(v.number(inport_count)), 1};
           },
       .numbers = {{inport_count, 3, whole(2, most_inputs)}},
       .lower = [](const Values&, Lowered& to) { to.become(Op::pick); },
       .rule = "j = u1 toward zero, within 1…n−1 (NaN → 1); y = u(j+1)"},
      {.type = "assert",
       .family = "Logic",
       .ports = {1, 0},
       .lower = [](const Values&, Lowered& to) { to.become(Op::require); },
       .rule = "u not true: the execution ends as failed at this sample"},
      {.type = "stop",
       .family = "Logic",
       .ports = {1, 0},
       .lower = [](const Values&, Lowered& to) { to.become(Op::stop); },
       .rule = "u true: the execution ends well after this sample"},
  };
}

}  // namespace plexo
