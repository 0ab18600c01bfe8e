// The JSON schema of the model file, for editors and other programs.
#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "blocks/json_format.h"

namespace plexo::json {

namespace {

using nlohmann::ordered_json;

ordered_json reference(const char* name) { return {{"$ref", std::string("#/$defs/") + name}}; }

// A number within bounds, or a text that is evaluated.
ordered_json number_schema(const NumberRule& rule) {
  ordered_json number = {{"type", rule.bounds.is_whole ? "integer" : "number"}};
  if (rule.bounds.lowest == least_positive) {
    number["exclusiveMinimum"] = 0;
  } else if (std::abs(rule.bounds.lowest) < most_finite) {
    number["minimum"] = rule.bounds.lowest;
  }
  if (rule.bounds.highest < most_finite) number["maximum"] = rule.bounds.highest;
  if (rule.standard == Default::number && std::isfinite(rule.fallback)) number["default"] = rule.fallback;
  return {{"anyOf", {number, reference("expression")}}};
}

ordered_json kind_schema(const Kind& kind) {
  ordered_json properties = {{"kind", {{"const", kind.type}}}}, required = {"id", "kind"};
  for (const NumberRule& rule : kind.numbers)
    properties[std::string(name_of(rule.property))] = number_schema(rule);
  for (const TextRule& rule : kind.texts) {
    ordered_json text = {{"type", "string"}, {"minLength", 1}};
    if (!rule.choices.empty() && !rule.ignores_case) {
      for (const std::string_view choice : rule.choices) text["enum"].push_back(choice);
    }
    properties[std::string(name_of(rule.property))] = text;
    if (rule.is_required) required.push_back(name_of(rule.property));
  }
  for (const ListRule& rule : kind.lists) {
    constexpr const char* shapes[] = {"number", "list", "rows", "series"};
    properties[std::string(name_of(rule.property))] = reference(shapes[static_cast<size_t>(rule.shape)]);
    if (rule.is_required) required.push_back(name_of(rule.property));
  }
  return {{"description", kind.rule}, {"properties", properties}, {"required", required}};
}

}  // namespace

std::string schema() {
  const ordered_json number = {{"type", "number"}}, text = {{"type", "string"}};
  const ordered_json number_or_text = {{"anyOf", {number, reference("expression")}}};
  ordered_json kinds = ordered_json::array(),
               block_properties = {{"id", {{"type", "integer"}, {"minimum", 2}}}};
  block_properties["parent"] = {{"type", "integer"}, {"minimum", 1}, {"default", 1}};
  block_properties["name"] = text;
  for (const std::string_view key : place_keys) block_properties[std::string(key)] = number;
  for (const Kind& kind : all_kinds()) {
    kinds.push_back(kind_schema(kind));
    block_properties["kind"]["enum"].push_back(kind.type);
  }
  for (size_t i = 0; i <= static_cast<size_t>(Property::path); ++i) {
    block_properties.emplace(name_of(static_cast<Property>(i)), true);
  }
  const ordered_json port = {{"type", "integer"}, {"minimum", 1}, {"maximum", 32767}, {"default", 1}};
  const ordered_json id = {{"type", "integer"}, {"minimum", 2}}, ignored = {{"^_", true}};
  const ordered_json list = {{"type", "array"}, {"minItems", 1}, {"items", number_or_text}};
  const ordered_json rows = {{"type", "array"}, {"minItems", 1}, {"items", list}};

  ordered_json document = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                           {"title", "kvalo model file"},
                           {"type", "object"},
                           {"required", {"format", "version"}},
                           {"patternProperties", ignored},
                           {"additionalProperties", false}};
  document["properties"] = {
      {"format", {{"const", format_name}}},
      {"version", {{"type", "integer"}, {"minimum", 1}, {"maximum", static_cast<int>(newest_version)}}},
      {"ti", number},
      {"tf", number},
      {"ts", number},
      {"blocks", {{"type", "array"}, {"items", reference("block")}}},
      {"links", {{"type", "array"}, {"items", reference("link")}}}};
  ordered_json& definitions = document["$defs"];
  definitions["expression"] = {{"type", "string"}, {"description", "a Python expression of numbers"}};
  definitions["number"] = number_or_text;
  definitions["list"] = {{"anyOf", {list, reference("expression")}}};
  definitions["rows"] = {{"anyOf", {rows, reference("expression")}}};
  definitions["series"] = {{"type", "object"},
                           {"properties", {{"x", list}, {"y", list}}},
                           {"required", {"x", "y"}},
                           {"patternProperties", ignored},
                           {"additionalProperties", false}};
  definitions["link"] = {
      {"type", "object"},
      {"properties", {{"from", id}, {"to", id}, {"portFrom", port}, {"portTo", port}, {"name", text}}},
      {"required", {"from", "to"}},
      {"patternProperties", ignored},
      {"additionalProperties", false}};
  definitions["block"] = {{"type", "object"},
                          {"properties", block_properties},
                          {"patternProperties", ignored},
                          {"additionalProperties", false},
                          {"oneOf", kinds}};
  return document.dump(1) + "\n";
}

}  // namespace plexo::json
