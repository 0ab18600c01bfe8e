// All kinds together, and how the properties of a block are read with the defaults of its kind.
#include "blocks/kind.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "runtime/str.h"

namespace plexo {

namespace {

constexpr double most_samples = 9007199254740992.0;  // 2^53

double whole_samples(double duration, double ts) {
  const double n = std::ceil(duration / ts - 1e-6);
  return n > 0.0 ? std::min(n, most_samples) : 0.0;
}

template <typename Rule>
const Rule* find_rule(const std::vector<Rule>& rules, Property property) {
  const auto found = std::ranges::find(rules, property, &Rule::property);
  return found == rules.end() ? nullptr : &*found;
}

}  // namespace

void Lowered::clear() {
  next = Op::end_of_sample;
  parameters.clear();
  states.clear();
  fill_count = 0;
  tables.clear();
  own_table.clear();
  kept_alive.reset();
}

bool Kind::has_variable_inputs() const noexcept { return number_rule(Property::inport_count) != nullptr; }
const NumberRule* Kind::number_rule(Property property) const noexcept { return find_rule(numbers, property); }
const TextRule* Kind::text_rule(Property property) const noexcept { return find_rule(texts, property); }
const ListRule* Kind::list_rule(Property property) const noexcept { return find_rule(lists, property); }

bool Kind::uses(Property property) const noexcept {
  return number_rule(property) || text_rule(property) || list_rule(property);
}

bool Values::has(Property property) const noexcept {
  return !std::holds_alternative<std::monostate>(given_->get(property));
}

double Values::number(Property property) const noexcept {
  if (const double* given = std::get_if<double>(&given_->get(property))) return *given;
  const NumberRule* rule = kind_->number_rule(property);
  if (rule == nullptr) return 0.0;
  switch (rule->standard) {
    case Default::whole_run:
      return times_->tf - times_->ti;
    case Default::one_sample:
      return times_->ts;
    default:
      return rule->fallback;
  }
}

std::string_view Values::text(Property property) const noexcept {
  if (const auto* given = std::get_if<std::string>(&given_->get(property))) return *given;
  const TextRule* rule = kind_->text_rule(property);
  return rule == nullptr || rule->choices.empty() ? std::string_view() : rule->choices.front();
}

int Values::choice(Property property) const noexcept {
  const TextRule* rule = kind_->text_rule(property);
  const std::string_view wanted = text(property);
  for (size_t i = 0; rule != nullptr && i < rule->choices.size(); ++i) {
    const std::string_view choice = rule->choices[i];
    if (wanted == choice || (rule->ignores_case && mirn3::str::to_lower(wanted) == choice))
      return static_cast<int>(i);
  }
  return -1;
}

std::span<const double> Values::list(Property property) const noexcept {
  const auto* given = std::get_if<list_t>(&given_->get(property));
  return given == nullptr ? std::span<const double>() : given->numbers;
}

const std::vector<list_t>& Values::rows(Property property) const noexcept {
  static const std::vector<list_t> nothing;
  const auto* given = std::get_if<std::vector<list_t>>(&given_->get(property));
  return given == nullptr ? nothing : *given;
}

const std::shared_ptr<series_t>& Values::series() const noexcept {
  static const std::shared_ptr<series_t> nothing;
  const auto* given = std::get_if<std::shared_ptr<series_t>>(&given_->get(Property::obj));
  return given == nullptr ? nothing : *given;
}

double Values::sample_of(Property point) const noexcept {
  return whole_samples(number(point) - times_->ti, times_->ts);
}

double Values::samples_in(Property duration) const noexcept {
  return whole_samples(number(duration), times_->ts);
}

std::span<const Kind> all_kinds() {
  static const Kinds kinds = [] {
    Kinds all;
    for (const auto family : {structure_kinds, source_kinds, arithmetic_kinds, logic_kinds, word_kinds,
                              memory_kinds, limit_kinds, table_kinds, dynamic_kinds}) {
      for (Kind& kind : family()) all.push_back(std::move(kind));
    }
    return all;
  }();
  return kinds;
}

const Kind* find_kind(std::string_view type) noexcept {
  static const auto by_type = [] {
    std::unordered_map<std::string_view, const Kind*> map;
    for (const Kind& kind : all_kinds()) map.emplace(kind.type, &kind);
    return map;
  }();
  const auto found = by_type.find(type);
  return found == by_type.end() ? nullptr : found->second;
}

}  // namespace plexo
