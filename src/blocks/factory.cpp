// Makes a block of a kind from the properties that were given.
#include "blocks/factory.h"

#include <fmt/format.h>

#include "runtime/exc.h"
#include "runtime/log.h"

namespace plexo {

namespace {

bool is_empty(const value_t& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return text->empty();
  if (const auto* list = std::get_if<list_t>(&value)) return list->numbers.empty();
  if (const auto* rows = std::get_if<std::vector<list_t>>(&value)) return rows->empty();
  return false;
}

[[noreturn]] void refuse_empty(Property property) {
  throw mirn3::exc::error_t(fmt::format("Argument '{:s}' cannot be empty", name_of(property)));
}

void require(const Kind& kind, const PropertiesBlock& given) {
  const auto is_missing = [&](Property property) {
    return std::holds_alternative<std::monostate>(given.get(property));
  };
  for (const TextRule& rule : kind.texts) {
    if (rule.is_required && is_missing(rule.property)) refuse_empty(rule.property);
  }
  for (const ListRule& rule : kind.lists) {
    if (rule.is_required && is_missing(rule.property)) refuse_empty(rule.property);
  }
}

}  // namespace

std::unique_ptr<MetaBlock> make_block(const Kind& kind, std::shared_ptr<PropertiesBlock> properties) {
  for (const auto& [property, value] : properties->all()) {
    if (!kind.uses(property)) {
      mirn3::log::write(mirn3::log::warning,
                        fmt::format("Property '{:s}' is ignored: a block of type '{:s}' has none",
                                    name_of(property), kind.type));
    } else if (is_empty(value)) {
      refuse_empty(property);
    }
  }
  require(kind, *properties);
  return std::make_unique<MetaBlock>(kind, std::move(properties));
}

namespace factory {

std::unique_ptr<IMetaBlock> create(std::string_view type) {
  return create(type, std::make_shared<PropertiesBlock>());
}

std::unique_ptr<IMetaBlock> create(std::string_view type, std::shared_ptr<PropertiesBlock> properties) {
  const Kind* kind = find_kind(type);
  if (kind == nullptr) return nullptr;
  const auto* inputs = std::get_if<double>(&properties->get(Property::inport_count));
  if (inputs != nullptr && *inputs > most_inputs) {
    throw mirn3::exc::error_t(fmt::format("Block cannot have more than {:d} inports", most_inputs));
  }
  return make_block(*kind, std::move(properties));
}

}  // namespace factory

}  // namespace plexo
