// Resolves the ids of a model, and runs the checks in the order in which they count.
#include "blocks/diagram.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace plexo {

Problem check_times(const Times& times) {
  if (!(times.ts > 0.0) || std::isinf(times.ts)) {
    return {bad_period, top_id,
            fmt::format("The sampling period ts is {}, and must be a positive number", times.ts)};
  }
  if (!(times.ti < times.tf) || std::isinf(times.ti) || std::isinf(times.tf)) {
    return {bad_times, top_id,
            fmt::format("The model runs from ti = {} to tf = {}: both must be finite, and ti the smaller one",
                        times.ti, times.tf)};
  }
  return {};
}

Ports system_ports(const MetaModel& model, uint64_t system) {
  Ports ports{0, 0};
  for (const auto& block : model.blocks()) {
    if (block->parent() != system) continue;
    ports.inputs += block->type() == "inport";
    ports.outputs += block->type() == "outport";
  }
  return ports;
}

Diagram::Diagram(MetaModel& model) : model_(&model), times_(model.times()) {
  blocks_.reserve(model.count());
  for (const auto& block : model.blocks()) blocks_.push_back(block.get());
  parents_.reserve(size());
  for (uint32_t i = 0; i < size(); ++i) {
    parents_.push_back(index_of(block(i).parent()));
    if (block(i).is_system()) systems_.try_emplace(i);
    if (parents_[i] == no_index) continue;
    System& system = systems_[parents_[i]];
    if (block(i).type() == "inport") system.inports.push_back(i);
    if (block(i).type() == "outport") system.outports.push_back(i);
    if (block(i).is_system()) system.systems.push_back(i);
  }

  const auto& links = model.wires().links;
  std::vector<std::pair<uint32_t, int16_t>> taken;
  ends_.reserve(links.size());
  taken.reserve(links.size());
  for (uint32_t i = 0; i < links.size(); ++i) {
    const Ends ends{index_of(links[i].from), index_of(links[i].to)};
    ends_.push_back(ends);
    if (ends.to != no_index) taken.emplace_back(ends.to, links[i].port_to);
    if (ends.from != no_index && parents_[ends.from] != no_index && !links[i].name.empty()) {
      systems_[parents_[ends.from]].named_links.push_back(i);
    }
  }
  std::ranges::sort(taken);
  has_second_link_.resize(size());
  for (size_t i = 1; i < taken.size(); ++i) {
    if (taken[i] == taken[i - 1]) has_second_link_[taken[i].first] = true;
  }
  for (auto& [index, system] : systems_) {
    if (system.named_links.empty()) continue;
    for (uint32_t i = index; i != no_index && !systems_.at(i).shows; i = parents_[i])
      systems_.at(i).shows = true;
  }
}

uint32_t Diagram::index_of(uint64_t id) const noexcept {
  if (id >= 1 && id <= size() && block(static_cast<uint32_t>(id - 1)).id() == id)
    return static_cast<uint32_t>(id - 1);
  const auto found = std::ranges::lower_bound(blocks_, id, {}, [](const MetaBlock* b) { return b->id(); });
  return found != blocks_.end() && (*found)->id() == id ? static_cast<uint32_t>(found - blocks_.begin())
                                                        : no_index;
}

Problem Diagram::problem(int code, uint32_t index, std::string_view text) const {
  return {code, block(index).id(),
          fmt::format("Block {:d} ({:s}): {:s}", block(index).id(), block(index).name(), text)};
}

Problem Diagram::bad_property(int code, uint32_t index, Property property, std::string_view text) const {
  return problem(code, index, fmt::format("property '{:s}' {:s}", name_of(property), text));
}

Problem Diagram::each(BlockCheck one) {
  for (uint32_t i = 0; i < size(); ++i) {
    if (Problem found = (this->*one)(i)) return found;
  }
  return {};
}

Problem Diagram::check() {
  for (const BlockCheck one : {&Diagram::check_input_count, &Diagram::check_expressions,
                               &Diagram::check_values, &Diagram::check_sizes, &Diagram::check_target}) {
    if (Problem found = each(one)) return found;
  }
  sort_ports();
  connect();
  for (const BlockCheck one :
       {&Diagram::check_cast, &Diagram::check_from, &Diagram::check_goto, &Diagram::check_inputs}) {
    if (Problem found = each(one)) return found;
  }
  return check_links();
}

}  // namespace plexo
