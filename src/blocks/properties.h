// What a block is built from: the properties that were given, by name, as numbers, texts, lists or a series.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "blocks/api.h"
#include "runtime/sample_vector.h"

namespace plexo {

// Every property but name and parent, which belong to all kinds.
enum class Property : uint8_t {
  obj,
  inport_count,
  outport_count,
  bp1,
  bp2,
  coeff_a,
  coeff_b,
  expression,
  fall,
  final_value,
  frequency,
  initial_value,
  lsb,
  max,
  msb,
  min,
  operation,
  out,
  phase,
  port_number,
  rise,
  seed,
  step_time,
  target,
  type,
  time_off,
  time_on,
  value_off,
  value_on,
  path,
};

// The name that scripts and model files use ("coeffA", "operator").
PLEXO_API std::string_view name_of(Property property) noexcept;
PLEXO_API std::optional<Property> property_named(std::string_view name) noexcept;

// Recorded samples: y at the stamps x, in seconds.
struct series_t {
  mirn3::sample_vector x, y;
};

// Numbers of which some may be texts: a text stands for the number at its position, which is 0 until then.
struct list_t {
  std::vector<double> numbers;
  std::vector<std::pair<uint32_t, std::string>> texts;
};

// monostate: not given. A text in place of a number is a Python expression.
using value_t =
    std::variant<std::monostate, double, std::string, list_t, std::vector<list_t>, std::shared_ptr<series_t>>;

struct PLEXO_API PropertiesBlock {
  std::string name;
  // Expressions of a file come from a stranger: only harmless ones are evaluated.
  bool is_from_file = false;

  // Sets or replaces a property; monostate takes it away.
  void set(Property property, value_t value);
  // monostate when it was not given.
  const value_t& get(Property property) const noexcept;

  const std::vector<std::pair<Property, value_t>>& all() const noexcept { return given_; }

 private:
  std::vector<std::pair<Property, value_t>> given_;  // a block has few of them
};

}  // namespace plexo
