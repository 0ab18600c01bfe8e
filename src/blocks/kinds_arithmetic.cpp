// Kinds that compute a number from the numbers of the same sample.
#include <algorithm>

#include "blocks/kind.h"

namespace plexo {

namespace {

using enum Property;

constexpr std::string_view functions[] = {"abs",  "neg",   "sign",  "square", "sqrt",  "exp",
                                          "log",  "log10", "sin",   "cos",    "tan",   "asin",
                                          "acos", "atan",  "floor", "ceil",   "trunc", "round"};
constexpr Op function_ops[] = {Op::absolute,    Op::negate,    Op::sign,        Op::square, Op::root,
                               Op::exponential, Op::logarithm, Op::logarithm10, Op::sin,    Op::cos,
                               Op::tan,         Op::asin,      Op::acos,        Op::atan,   Op::floor,
                               Op::ceil,        Op::trunc,     Op::round};
static_assert(std::size(functions) == std::size(function_ops));

constexpr std::string_view functions2[] = {"atan2", "pow", "mod", "hypot"};
constexpr Op function2_ops[] = {Op::atan2, Op::power, Op::modulo, Op::hypot};
constexpr std::string_view extremes[] = {"max", "min"};

constexpr Bounds input_count = whole(1, most_inputs);

Ports given_count(const Values& v) { return {static_cast<unsigned>(v.number(inport_count)), 1}; }

// As many as the operator has signs, unless the number is given.
Ports count_of_signs(const Values& v) {
  if (v.has(inport_count)) return given_count(v);
  return {v.has(operation) ? static_cast<unsigned>(v.text(operation).size()) : 2, 1};
}

std::optional<Property> check_signs(const Values& v, std::string_view known) {
  if (v.text(operation).find_first_not_of(known) != std::string_view::npos) return operation;
  return std::nullopt;
}

// `pair` are the operations of two inputs, the first without the second sign.
void lower_signs(const Values& v, Lowered& to, char first_sign, Op plain, Op general, double normal,
                 double other) {
  const std::string given(v.text(operation));
  const std::string signs = given.empty() ? std::string(count_of_signs(v).inputs, first_sign) : given;
  to.become(signs == std::string(2, first_sign) ? plain : general);
  if (to.op == plain) return;
  for (const char sign : signs) to.parameters.push_back(sign == first_sign ? normal : other);
}

void lower_sum(const Values& v, Lowered& to) {
  if (v.text(operation) == "+-") return to.become(Op::subtract);
  lower_signs(v, to, '+', Op::add, Op::sum, 1.0, -1.0);
}

void lower_product(const Values& v, Lowered& to) {
  lower_signs(v, to, '*', Op::multiply, Op::product, 0.0, 1.0);
}

}  // namespace

Kinds arithmetic_kinds() {
  return {
      {.type = "gain",
       .family = "Arithmetic",
       .ports = {1, 1},
       .numbers = {{expression, 1}},
       .lower = [](const Values& v, Lowered& to) { to.become(Op::gain, {v.number(expression)}); },
       .rule = "y = expression·u"},
      {.type = "linear",
       .family = "Arithmetic",
       .ports = {1, 1},
       .numbers = {{coeff_a, 1}, {coeff_b, 0}},
       .lower =
           [](const Values& v, Lowered& to) {
             to.become(Op::linear, {v.number(coeff_a), v.number(coeff_b)});
           },
       .rule = "y = coeffA·u + coeffB"},
      {.type = "sum",
       .family = "Arithmetic",
       .ports_of = count_of_signs,
       .numbers = {{inport_count, 2, input_count, Default::by_kind}},
       .texts = {{.property = operation, .choices = {}}},
       .check = [](const Values& v) { return check_signs(v, "+-"); },
       .lower = lower_sum,
       .rule =
           "`operator` has a \"+\" or \"-\" for each input (all \"+\"); y = ((±u1) ± u2) ± …. `inportCount` "
           "is the length of `operator`, else 2"},
      {.type = "product",
       .family = "Arithmetic",
       .ports_of = count_of_signs,
       .numbers = {{inport_count, 2, input_count, Default::by_kind}},
       .texts = {{.property = operation, .choices = {}}},
       .check = [](const Values& v) { return check_signs(v, "*/"); },
       .lower = lower_product,
       .rule = "`operator` has a \"*\" or \"/\" for each input (all \"*\"); y = ((u1 or 1/u1) op u2) op …. "
               "`inportCount` as for `sum`"},
      {.type = "math",
       .family = "Arithmetic",
       .ports = {1, 1},
       .texts = {{.property = operation, .choices = functions, .is_required = true}},
       .lower = [](const Values& v, Lowered& to) { to.become(function_ops[v.choice(operation)]); },
       .rule =
           "the C library's function; \"neg\" is −u, \"sign\" (u > 0) − (u < 0), \"square\" u·u, \"round\" "
           "takes halves away from zero"},
      {.type = "math2",
       .family = "Arithmetic",
       .ports = {2, 1},
       .texts = {{.property = operation, .choices = functions2, .is_required = true}},
       .lower = [](const Values& v, Lowered& to) { to.become(function2_ops[v.choice(operation)]); },
       .rule =
           "\"atan2\"(u1, u2), \"pow\"(u1, u2), \"mod\" fmod(fmod(u1, u2) + u2, u2), \"hypot\" sqrt(u1·u1 + "
           "u2·u2)"},
      {.type = "minmax",
       .family = "Arithmetic",
       .ports_of = given_count,
       .numbers = {{inport_count, 2, input_count}},
       .texts = {{.property = operation, .choices = extremes}},
       .lower = [](const Values& v,
                   Lowered& to) { to.become(v.choice(operation) == 0 ? Op::largest : Op::smallest); },
       .rule = "y = u1; then for each next ui: \"min\" ui < y → y = ui; \"max\" ui > y → y = ui"},
  };
}

}  // namespace plexo
