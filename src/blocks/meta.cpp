// The model that is being built: blocks, links, and what scripts ask of them.
#include "blocks/meta.h"

#include <fmt/format.h>

#include <algorithm>

#include "blocks/diagram.h"
#include "blocks/exec.h"
#include "blocks/flatten.h"
#include "blocks/json_format.h"
#include "runtime/exc.h"
#include "runtime/log.h"

namespace plexo {

namespace {

constexpr unsigned most_ports = 32767;

[[noreturn]] void refuse(const std::string& why) {
  mirn3::log::write(mirn3::log::warning, why);
  throw mirn3::exc::error_t("Invalid properties value");
}

bool is_port(const MetaBlock& block) { return block.type() == "inport" || block.type() == "outport"; }

}  // namespace

void PropertiesModel::insert_link(uint64_t from, uint64_t to, int16_t port_from, int16_t port_to,
                                  std::string_view name) {
  links.push_back({from, to, port_from, port_to, std::string(name)});
}

std::string MetaBlock::name() const {
  return given_->name.empty() ? fmt::format("{:s}{:d}", kind_->type, id_) : given_->name;
}

MetaBlock* MetaModel::find(uint64_t id) const noexcept {
  // Ids count up from 1, so that a block is at its own place unless a file left some out.
  if (id >= 1 && id <= blocks_.size() && blocks_[id - 1]->id_ == id) return blocks_[id - 1].get();
  const auto found = std::ranges::lower_bound(blocks_, id, {}, [](const auto& block) { return block->id_; });
  return found != blocks_.end() && (*found)->id_ == id ? found->get() : nullptr;
}

uint64_t MetaModel::add(std::unique_ptr<IMetaBlock> block, uint64_t parent) {
  std::unique_ptr<MetaBlock> mine(static_cast<MetaBlock*>(block.release()));
  const uint64_t id = largest_id() + 1;
  if (blocks_.empty()) {
    if (!mine->is_system()) refuse("The first block of a model is its top block, a subsys");
    append(id, std::move(mine), 0, 0);
    return id;
  }
  parent = std::max(parent, top_id);
  const MetaBlock* system = find(parent);
  if (system == nullptr) throw mirn3::exc::error_t(fmt::format("There's no block with id '{:d}'", parent));
  if (!system->is_system()) {
    refuse(fmt::format("Block {:d} is of type '{:s}' and holds no other", parent, system->type()));
  }
  if (system->depth_ >= deepest) {
    refuse(fmt::format("Block {:d} lies {:d} systems deep, and nothing can lie deeper", parent, deepest));
  }

  const Mark before = mark();
  const std::string* path = std::get_if<std::string>(&mine->given().get(Property::path));
  const std::string file = mine->is_system() && path != nullptr ? *path : std::string();
  append(id, std::move(mine), parent, system->depth_ + 1);
  const int failed = file.empty() ? json::loaded : json::load(this, file, id);
  if (failed != json::loaded) {
    roll_back(before);
    throw mirn3::exc::error_t(fmt::format("Error loading file '{:s}'", file), failed);
  }
  return id;
}

void MetaModel::append(uint64_t id, std::unique_ptr<MetaBlock> block, uint64_t parent, unsigned depth) {
  block->id_ = id;
  block->parent_ = parent;
  block->depth_ = depth;
  if (is_port(*block)) number_port(*block);
  blocks_.push_back(std::move(block));
}

// Takes note of a port's number, or gives it the lowest free one.
void MetaModel::number_port(MetaBlock& block) {
  Used& used = used_ports_[{block.parent_, block.type() == "inport"}];
  const value_t& given = block.given_->get(Property::port_number);
  const double* number = std::get_if<double>(&given);
  if (number == nullptr && !std::holds_alternative<std::monostate>(given)) return;  // a text: known later
  if (number != nullptr && !(*number >= 1 && *number <= most_ports)) return;        // found by the checks
  const size_t port = number != nullptr ? static_cast<size_t>(*number) : used.lowest_free;
  if (number == nullptr) block.given_->set(Property::port_number, static_cast<double>(port));
  if (used.taken.size() <= port) used.taken.resize(port + 1);
  used.taken[port] = true;
  while (used.lowest_free < used.taken.size() && used.taken[used.lowest_free]) ++used.lowest_free;
}

void MetaModel::roll_back(const Mark& mark) {
  while (blocks_.size() > mark.blocks) {
    const MetaBlock& block = *blocks_.back();
    const double* number = std::get_if<double>(&block.given_->get(Property::port_number));
    if (is_port(block) && number != nullptr && *number >= 1 && *number <= most_ports) {
      Used& used = used_ports_[{block.parent_, block.type() == "inport"}];
      const size_t port = static_cast<size_t>(*number);
      if (port < used.taken.size()) used.taken[port] = false;
      used.lowest_free = std::min(used.lowest_free, port);
    }
    blocks_.pop_back();
  }
  links_->links.resize(mark.links);
  times_ = mark.times;
}

std::optional<double> MetaModel::number(uint64_t id, std::string_view key) const {
  const MetaBlock* block = find(id);
  if (block == nullptr) return std::nullopt;
  const Kind& kind = block->kind();
  const Values values(kind, block->evaluated(), times_);
  if (key == "id") return static_cast<double>(id);
  if (key == "parent") return static_cast<double>(block->parent());
  if (key == "inportCount" || key == "outportCount") {
    const Ports ports = block->is_system() ? system_ports(*this, id)
                        : kind.ports_of    ? kind.ports_of(values)
                                           : kind.ports;
    return key == "inportCount" ? ports.inputs : ports.outputs;
  }
  const auto property = property_named(key);
  if (!property) return std::nullopt;
  const NumberRule* rule = kind.number_rule(*property);
  const ListRule* list = kind.list_rule(*property);
  if (rule == nullptr && (list == nullptr || list->shape != Shape::number)) return std::nullopt;
  const value_t& given = block->evaluated().get(*property);
  if (const double* number = std::get_if<double>(&given)) return *number;
  if (!std::holds_alternative<std::monostate>(given) || rule == nullptr || rule->standard == Default::none)
    return std::nullopt;
  return values.number(*property);
}

int MetaModel::meta_process(int flag) {
  flat_.reset();
  processed_blocks_ = ~uint64_t{0};
  tiers_ = zones_ = 0;
  if (blocks_.empty()) json::add_top(*this);
  Problem problem = check_times(times_);
  Diagram diagram(*this);
  if (!problem) problem = diagram.check();
  if (!problem) {
    auto flat = std::make_shared<FlatModel>();
    flat->times = times_;
    problem = flatten(diagram, flag == 0, *flat);
    if (!problem && flag == 0) {
      tiers_ = flat->tiers;
      zones_ = flat->zones;
      flat_ = std::move(flat);
      processed_blocks_ = count();
      processed_links_ = links();
    }
  }
  failed_ = problem.block;
  if (problem) mirn3::log::write(mirn3::log::warning, problem.text);
  return problem.code;
}

bool MetaModel::build(IExecModel& model) {
  if (flat_ == nullptr || !is_current()) {
    mirn3::log::write(mirn3::log::warning, "The model has changed since it was validated: validate it again");
    return false;
  }
  return static_cast<ExecModel&>(model).fill(flat_);
}

std::shared_ptr<IMetaModel> create_empty_meta_model() {
  return create_empty_meta_model(std::make_shared<PropertiesModel>());
}

std::shared_ptr<IMetaModel> create_empty_meta_model(std::shared_ptr<PropertiesModel> links) {
  return std::make_shared<MetaModel>(std::move(links));
}

}  // namespace plexo
