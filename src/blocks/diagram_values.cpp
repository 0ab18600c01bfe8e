// The checks of what each block was given.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "blocks/diagram.h"
#include "blocks/expr.h"

namespace plexo {

namespace {

bool fits(const value_t& value, Shape shape) {
  switch (shape) {
    case Shape::number:
      return std::holds_alternative<double>(value);
    case Shape::list:
      return std::holds_alternative<list_t>(value);
    case Shape::rows:
      return std::holds_alternative<std::vector<list_t>>(value);
    default:
      return std::holds_alternative<std::shared_ptr<series_t>>(value);
  }
}

std::string words(Shape shape) {
  switch (shape) {
    case Shape::number:
      return "is not a number";
    case Shape::list:
      return "is not a list of numbers";
    case Shape::rows:
      return "is not a list of lists of numbers";
    default:
      return "is not a series";
  }
}

std::string bounds_text(const Bounds& bounds, double value) {
  if (std::isnan(value)) return "is NaN";
  if (bounds.is_whole)
    return fmt::format("is {}, and must be a whole number from {} to {}", value, bounds.lowest,
                       bounds.highest);
  if (std::isinf(value)) return fmt::format("is {}, and must be finite", value);
  return fmt::format("is {}, and must be {}", value, bounds.lowest > 0.0 ? "above 0" : "0 or more");
}

}  // namespace

Problem Diagram::check_input_count(uint32_t index) {
  const double* given = std::get_if<double>(&block(index).given().get(Property::inport_count));
  const bool counts = given != nullptr && block(index).kind().has_variable_inputs();
  const double inputs = block(index).is_system() ? static_cast<double>(inports(index).size())
                        : counts                 ? *given
                                                 : 0;
  if (inputs <= most_inputs) return {};  // NaN is found later
  return problem(too_many_inputs, index, fmt::format("{} inputs, and {} is the most", inputs, most_inputs));
}

Problem Diagram::check_expressions(uint32_t index) {
  MetaBlock& changed = block(index);
  const Kind& kind = changed.kind();
  std::unique_ptr<PropertiesBlock> evaluated;
  for (const auto& [property, value] : changed.given().all()) {
    const NumberRule* number = kind.number_rule(property);
    const ListRule* list = kind.list_rule(property);
    if (number == nullptr && list == nullptr) continue;
    const Shape shape = number != nullptr ? Shape::number : list->shape;
    value_t result;
    if (has_text(value)) {
      std::string why;
      if (!evaluate(value, changed.given().is_from_file, result, why))
        return bad_property(expression_failed, index, property, why);
      if (!evaluated) evaluated = std::make_unique<PropertiesBlock>(changed.given());
    }
    const value_t& final_value = has_text(value) ? result : value;
    if (!fits(final_value, shape)) return bad_property(expression_no_number, index, property, words(shape));
    if (evaluated && has_text(value)) evaluated->set(property, std::move(result));
  }
  changed.set_evaluated(std::move(evaluated));
  return {};
}

Problem Diagram::check_numbers(uint32_t index) const {
  const Kind& kind = block(index).kind();
  const PropertiesBlock& given = block(index).evaluated();
  for (const auto& [property, value] : given.all()) {
    const double* number = std::get_if<double>(&value);
    if (number == nullptr) continue;
    const NumberRule* rule = kind.number_rule(property);
    const Bounds bounds = rule != nullptr ? rule->bounds : finite;
    if (rule == nullptr && kind.list_rule(property) == nullptr) continue;
    if (!(*number >= bounds.lowest && *number <= bounds.highest) ||
        (bounds.is_whole && *number != std::trunc(*number))) {
      return bad_property(bad_value, index, property, bounds_text(bounds, *number));
    }
  }
  const Values v = values(index);
  if (kind.number_rule(Property::min) && v.number(Property::min) > v.number(Property::max)) {
    return bad_property(bad_value, index, Property::min, "is above 'max'");
  }
  if (kind.number_rule(Property::msb) && v.number(Property::lsb) > v.number(Property::msb)) {
    return bad_property(bad_value, index, Property::lsb, "is above 'msb'");
  }
  return {};
}

Problem Diagram::check_texts(uint32_t index) const {
  const Values v = values(index);
  for (const TextRule& rule : block(index).kind().texts) {
    if (rule.choices.empty() || v.choice(rule.property) >= 0) continue;
    return bad_property(bad_value, index, rule.property,
                        fmt::format("is \"{:s}\", and must be one of {}", v.text(rule.property),
                                    fmt::join(rule.choices, ", ")));
  }
  return {};
}

Problem Diagram::check_values(uint32_t index) {
  if (Problem found = check_numbers(index)) return found;
  if (Problem found = check_texts(index)) return found;
  if (const Check extra = block(index).kind().check) {
    if (const auto property = extra(values(index))) {
      return bad_property(bad_value, index, *property, "has a value that cannot be used here");
    }
  }
  if (block(index).is_system()) {
    if (Problem found = check_port_numbers(index)) return found;
    if (Problem found = check_names(index)) return found;
  }
  return check_second_link(index);
}

Problem Diagram::check_port_numbers(uint32_t index) const {
  for (const auto ports : {inports(index), outports(index)}) {
    std::vector<bool> seen(ports.size());
    for (const uint32_t port : ports) {
      const double number = values(port).number(Property::port_number);
      if (!(number >= 1 && number <= static_cast<double>(ports.size())) ||
          seen[static_cast<size_t>(number) - 1]) {
        return bad_property(bad_value, port, Property::port_number,
                            fmt::format("is {}: the numbers of {} ports must run from 1 to {} without a gap",
                                        number, ports.size(), ports.size()));
      }
      seen[static_cast<size_t>(number) - 1] = true;
    }
  }
  return {};
}

// Sizes that belong together: signs and inputs, breakpoints and table.
Problem Diagram::check_sizes(uint32_t index) {
  using enum Property;
  const Kind& kind = block(index).kind();
  const Values v = values(index);
  if ((kind.type == "sum" || kind.type == "product") && v.has(operation) && v.has(inport_count) &&
      static_cast<double>(v.text(operation).size()) != v.number(inport_count)) {
    return bad_property(
        sizes_differ, index, operation,
        fmt::format("has {} signs for {} inputs", v.text(operation).size(), v.number(inport_count)));
  }
  if (kind.type == "lut1d" && v.list(bp1).size() != v.list(out).size()) {
    return bad_property(
        sizes_differ, index, out,
        fmt::format("has {} values for {} breakpoints", v.list(out).size(), v.list(bp1).size()));
  }
  if (kind.type == "lut2d") {
    const auto& rows = v.rows(out);
    if (rows.size() != v.list(bp1).size()) {
      return bad_property(sizes_differ, index, out,
                          fmt::format("has {} rows for {} breakpoints", rows.size(), v.list(bp1).size()));
    }
    for (const list_t& row : rows) {
      if (row.numbers.size() != v.list(bp2).size()) {
        return bad_property(
            sizes_differ, index, out,
            fmt::format("has a row of {} values for {} breakpoints", row.numbers.size(), v.list(bp2).size()));
      }
    }
  }
  return {};
}

}  // namespace plexo
