// One kind of block: its ports, its properties with defaults and bounds, and how it becomes an operation.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "blocks/ops.h"
#include "blocks/plexo.h"

namespace plexo {

inline constexpr double infinity = std::numeric_limits<double>::infinity();
inline constexpr double most_finite = std::numeric_limits<double>::max();
inline constexpr double least_positive = std::numeric_limits<double>::denorm_min();

struct Bounds {
  double lowest = -most_finite;
  double highest = most_finite;
  bool is_whole = false;
};
inline constexpr Bounds finite{};
inline constexpr Bounds any{-infinity, infinity};
inline constexpr Bounds positive{least_positive, most_finite};
inline constexpr Bounds not_negative{0.0, most_finite};
inline constexpr Bounds not_negative_any{0.0, infinity};
constexpr Bounds whole(double lowest, double highest) { return {lowest, highest, true}; }

// What holds where a number is not given.
enum class Default : uint8_t { number, none, next_free, whole_run, one_sample, by_kind };

struct NumberRule {
  Property property;
  double fallback;
  Bounds bounds = finite;
  Default standard = Default::number;
};

// A text with the choices that it has; the first is the default unless it is required.
struct TextRule {
  Property property;
  std::span<const std::string_view> choices;  // none: any text
  bool is_required = false;
  bool ignores_case = false;
};

enum class Shape : uint8_t { number, list, rows, series };

struct ListRule {
  Property property;
  Shape shape;
  bool is_required = true;
};

struct Kind;

// The properties of one block, texts evaluated, with the defaults of its kind.
class Values {
 public:
  Values(const Kind& kind, const PropertiesBlock& given, const Times& times)
      : kind_(&kind), given_(&given), times_(&times) {}

  const Times& times() const noexcept { return *times_; }
  bool has(Property property) const noexcept;
  double number(Property property) const noexcept;
  std::string_view text(Property property) const noexcept;
  // The place of the text among the kind's choices, -1 if it is not among them.
  int choice(Property property) const noexcept;
  std::span<const double> list(Property property) const noexcept;
  const std::vector<list_t>& rows(Property property) const noexcept;
  const std::shared_ptr<series_t>& series() const noexcept;

  // Sample numbers of a point in time and of a duration: at least 0, at most 2^53.
  double sample_of(Property point) const noexcept;
  double samples_in(Property duration) const noexcept;

 private:
  const Kind* kind_;
  const PropertiesBlock* given_;
  const Times* times_;
};

struct Ports {
  unsigned inputs;
  unsigned outputs;
};

// What a block becomes; reused from block to block.
struct Lowered {
  Op op;
  Op next = Op::end_of_sample;  // what stores its state after the outputs; end_of_sample: nothing
  std::vector<double> parameters;
  std::vector<double> states;  // initial values
  uint64_t fill_count = 0;     // more states, all of one value
  double fill_value = 0.0;
  std::vector<std::span<const double>> tables;
  std::vector<double> own_table;         // of which tables may be a view
  std::shared_ptr<series_t> kept_alive;  // likewise

  void clear();
  void become(Op operation, std::initializer_list<double> with = {}) {
    op = operation;
    parameters = with;
  }
};

// What is wrong with a block's values beyond their bounds, as the property to name; nothing if all is well.
using Check = std::optional<Property> (*)(const Values&);

struct Kind {
  std::string_view type{};
  std::string_view family{};
  Ports ports{0, 0};                           // if fixed
  Ports (*ports_of)(const Values&) = nullptr;  // else
  std::vector<NumberRule> numbers{};
  std::vector<TextRule> texts{};
  std::vector<ListRule> lists{};
  Check check = nullptr;
  void (*lower)(const Values&, Lowered&) = nullptr;  // null for kinds that only structure a model
  std::string_view rule{};                           // for the catalogue

  bool has_variable_inputs() const noexcept;
  const NumberRule* number_rule(Property property) const noexcept;
  const TextRule* text_rule(Property property) const noexcept;
  const ListRule* list_rule(Property property) const noexcept;
  bool uses(Property property) const noexcept;
};

// All kinds, family by family. Each function is one file.
using Kinds = std::vector<Kind>;
Kinds structure_kinds();
Kinds source_kinds();
Kinds arithmetic_kinds();
Kinds logic_kinds();
Kinds word_kinds();
Kinds memory_kinds();
Kinds limit_kinds();
Kinds table_kinds();
Kinds dynamic_kinds();

PLEXO_API std::span<const Kind> all_kinds();
const Kind* find_kind(std::string_view type) noexcept;  // null for an unknown one

inline constexpr std::string_view comparisons[] = {"==", "!=", "<", "<=", ">", ">="};

}  // namespace plexo
