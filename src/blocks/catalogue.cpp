// The page that describes every kind of block, from the table of kinds.
#include <fmt/format.h>

#include <cmath>

#include "blocks/kind.h"

namespace plexo {

namespace {

std::string fallback(const NumberRule& rule) {
  switch (rule.standard) {
    case Default::none:
      return "none";
    case Default::next_free:
      return "the next free";
    case Default::whole_run:
      return "tf − ti";
    case Default::one_sample:
      return "one sample";
    case Default::by_kind:
      return "see below";
    default:
      return std::isinf(rule.fallback) ? (rule.fallback > 0 ? "inf" : "−inf")
                                       : fmt::format("{}", rule.fallback);
  }
}

std::string bounds(const Bounds& range) {
  if (range.is_whole) return fmt::format("whole, {} to {}", range.lowest, range.highest);
  if (range.lowest == least_positive) return "above 0";
  if (range.lowest == 0.0) return std::isinf(range.highest) ? "0 or more, or infinite" : "0 or more";
  return std::isinf(range.highest) ? "any, also infinite" : "finite";
}

std::string ports(const Kind& kind) {
  if (kind.type == "subsys") return "by its content";
  if (kind.ports_of == nullptr) return fmt::format("{} in, {} out", kind.ports.inputs, kind.ports.outputs);
  const bool has_counted_inputs = kind.has_variable_inputs();
  const bool has_counted_outputs = kind.number_rule(Property::outport_count) != nullptr;
  return fmt::format("{} in, {} out",
                     has_counted_inputs    ? "n"
                     : has_counted_outputs ? "1"
                                           : "1 or 2",
                     has_counted_outputs ? "n" : "1");
}

std::string properties(const Kind& kind) {
  std::string text;
  const auto row = [&](Property property, std::string_view standard, std::string_view values) {
    text += fmt::format("| `{}` | {} | {} |\n", name_of(property), standard, values);
  };
  for (const ListRule& rule : kind.lists) {
    constexpr const char* shapes[] = {"a number or a text", "list of numbers", "list of lists of numbers",
                                      "TimeSeries"};
    row(rule.property, rule.is_required ? "required" : "none", shapes[static_cast<size_t>(rule.shape)]);
  }
  for (const NumberRule& rule : kind.numbers) row(rule.property, fallback(rule), bounds(rule.bounds));
  for (const TextRule& rule : kind.texts) {
    std::string choices;
    for (const std::string_view choice : rule.choices)
      choices += fmt::format("{}\"{}\"", choices.empty() ? "" : ", ", choice);
    if (rule.ignores_case) choices += ", in any case";
    const std::string first = rule.choices.empty() ? "none" : fmt::format("\"{}\"", rule.choices.front());
    row(rule.property, rule.is_required ? "required" : first, choices.empty() ? "a text" : choices);
  }
  return text.empty() ? "" : "\n| Property | Default | Values |\n|---|---|---|\n" + text;
}

}  // namespace

std::string catalogue_page() {
  std::string text = fmt::format(
      "# The kinds of blocks\n\n"
      "All {} kinds, made from the library's own table by `catalogue_page()`; a test compares them.\n\n"
      "u, u1, u2 … are the inputs of a sample, y its output; x is what the block stores, x⁺ what it stores "
      "for the "
      "next sample, v the input of the sample before. k counts samples from 0, t = ti + k·ts. p → a : b is "
      "\"a if p, "
      "else b\"; clip(a, lo, hi) is a > hi → hi : (lo > a → lo : a). A value is true unless it equals 0, so "
      "NaN is "
      "true. K(T) = ceil((T − ti)/ts − 1e-6) is the sample of a point in time, N(D) = ceil(D/ts − 1e-6) the "
      "number "
      "of samples of a duration; neither is below 0 or above 2^53. What stands in {{ }} is computed once. "
      "Expressions "
      "are evaluated as written, in double precision. A block **reads now** when its output depends on its "
      "inputs of "
      "the same sample; a loop needs a block that does not. `name` and `parent` belong to every kind.\n",
      all_kinds().size());
  std::string_view family;
  for (const Kind& kind : all_kinds()) {
    if (kind.family != family) text += fmt::format("\n## {}\n", kind.family);
    family = kind.family;
    text += fmt::format("\n### {}\n\n{}. {}.\n{}", kind.type, ports(kind), kind.rule, properties(kind));
  }
  return text;
}

}  // namespace plexo
