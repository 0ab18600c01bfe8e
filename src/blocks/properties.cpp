// Names of the properties, and the few of them that a block was given.
#include "blocks/properties.h"

#include <algorithm>
#include <array>

namespace plexo {

namespace {

constexpr std::array<std::string_view, 30> names{
    "obj",      "inportCount", "outportCount", "bp1",          "bp2",     "coeffA", "coeffB",   "expression",
    "fall",     "finalValue",  "frequency",    "initialValue", "lsb",     "max",    "msb",      "min",
    "operator", "out",         "phase",        "portNumber",   "rise",    "seed",   "stepTime", "target",
    "type",     "timeOff",     "timeOn",       "valueOff",     "valueOn", "path"};
static_assert(names.size() == static_cast<size_t>(Property::path) + 1);

}  // namespace

std::string_view name_of(Property property) noexcept { return names[static_cast<size_t>(property)]; }

std::optional<Property> property_named(std::string_view name) noexcept {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return std::nullopt;
  return static_cast<Property>(found - names.begin());
}

void PropertiesBlock::set(Property property, value_t value) {
  std::erase_if(given_, [=](const auto& entry) { return entry.first == property; });
  if (!std::holds_alternative<std::monostate>(value)) given_.emplace_back(property, std::move(value));
}

const value_t& PropertiesBlock::get(Property property) const noexcept {
  static const value_t nothing;
  for (const auto& [key, value] : given_) {
    if (key == property) return value;
  }
  return nothing;
}

}  // namespace plexo
