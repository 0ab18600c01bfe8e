// The checks of names and links, and who feeds which input.
#include <fmt/format.h>

#include <algorithm>

#include "blocks/diagram.h"
#include "blocks/names.h"

namespace plexo {

namespace {

// Names that stand for signals, each with the output that it names.
class Names {
 public:
  // False if the name is taken by another signal.
  bool take(std::string_view name, uint64_t from, int port) {
    const auto [entry, is_new] = taken_.try_emplace(attribute_name(name), from, port);
    return is_new || entry->second == std::pair<uint64_t, int>(from, port);
  }

 private:
  std::unordered_map<std::string, std::pair<uint64_t, int>> taken_;
};

}  // namespace

Problem Diagram::check_second_link(uint32_t index) const {
  if (!has_second_link_[index]) return {};
  return problem(bad_value, index, "two links end at one of its inputs");
}

Problem Diagram::check_names(uint32_t index) const {
  const System& system = systems_.at(index);
  const auto& links = model_->wires().links;
  Names names;
  for (const uint32_t i : system.named_links) {
    if (!names.take(links[i].name, links[i].from, links[i].port_from)) {
      return problem(bad_value, ends_[i].from,
                     fmt::format("the name '{:s}' of its output is that of another signal", links[i].name));
    }
  }
  for (const uint32_t inner : system.systems) {
    if (systems_.at(inner).shows && !names.take(block(inner).name(), block(inner).id(), 0)) {
      return problem(bad_value, inner, "has the name of a signal or system beside it");
    }
  }
  if (parents_[index] != no_index) return {};
  return check_top_names();
}

// Outports and inports of the top block are attributes of the result, and members in generated code.
Problem Diagram::check_top_names() const {
  const System& top = systems_.at(0);
  const auto& links = model_->wires().links;
  std::unordered_map<uint32_t, size_t> feeding;  // outport -> its link
  for (size_t i = 0; i < links.size(); ++i) {
    if (ends_[i].to != no_index && parents_[ends_[i].to] == 0 && block(ends_[i].to).type() == "outport") {
      feeding.emplace(ends_[i].to, i);
    }
  }
  Names shown;
  for (const uint32_t i : top.named_links) shown.take(links[i].name, links[i].from, links[i].port_from);
  for (const uint32_t i : top.systems) {
    if (systems_.at(i).shows) shown.take(block(i).name(), block(i).id(), 0);
  }
  for (const auto* ports : {&top.outports, &top.inports}) {
    Names own;
    for (const uint32_t port : *ports) {
      const auto link = feeding.find(port);
      const bool is_fed = link != feeding.end();
      const bool is_shown = ports == &top.outports;
      if (!own.take(block(port).name(), block(port).id(), 0) ||
          (is_shown && !shown.take(block(port).name(), is_fed ? links[link->second].from : block(port).id(),
                                   is_fed ? links[link->second].port_from : -1))) {
        return problem(bad_value, port, "has the name of another port or signal of the top block");
      }
    }
  }
  return {};
}

Problem Diagram::check_target(uint32_t index) {
  const std::string_view type = block(index).type();
  if (type != "goto" && type != "from") return {};
  const std::string_view target = values(index).text(Property::target);
  if (type == "from") {
    froms_.try_emplace(target, index);
  } else if (!gotos_.try_emplace(target, index).second) {
    return bad_property(
        target_taken, index, Property::target,
        fmt::format("\"{:s}\" is that of block {:d}, too", target, block(gotos_.at(target)).id()));
  }
  return {};
}

uint32_t Diagram::goto_of(std::string_view target) const {
  const auto found = gotos_.find(target);
  return found == gotos_.end() ? no_index : found->second;
}

uint32_t Diagram::port_index(uint32_t port_block) const {
  return static_cast<uint32_t>(values(port_block).number(Property::port_number)) - 1;
}

void Diagram::sort_ports() {
  const auto by_number = [this](uint32_t a, uint32_t b) { return port_index(a) < port_index(b); };
  for (auto& [index, system] : systems_) {
    std::ranges::sort(system.inports, by_number);
    std::ranges::sort(system.outports, by_number);
  }
}

// Finds the output that feeds each input; bad links feed nothing.
void Diagram::connect() {
  ports_.reserve(size());
  first_wire_.reserve(size() + 1);
  uint32_t wires = 0;
  for (uint32_t i = 0; i < size(); ++i) {
    const Kind& kind = block(i).kind();
    if (block(i).is_system()) {
      ports_.push_back({static_cast<unsigned>(inports(i).size()), static_cast<unsigned>(outports(i).size())});
    } else {
      ports_.push_back(kind.ports_of ? kind.ports_of(values(i)) : kind.ports);
    }
    first_wire_.push_back(wires);
    // Nothing is around the top block that could feed it.
    wires += i == 0 ? 0 : ports_[i].inputs;
  }
  first_wire_.push_back(wires);
  wires_.resize(wires + 1);  // one more, so that there always is a first
  const auto& links = model_->wires().links;
  for (size_t i = 0; i < links.size(); ++i) {
    const auto [from, to] = ends_[i];
    if (from == no_index || to == no_index || parents_[from] != parents_[to] || from == 0 || to == 0)
      continue;
    const int out = links[i].port_from, in = links[i].port_to;
    if (out < 1 || in < 1 || out > static_cast<int>(ports_[from].outputs) ||
        in > static_cast<int>(ports_[to].inputs))
      continue;
    wires_[first_wire_[to] + static_cast<unsigned>(in) - 1] = {from, static_cast<uint32_t>(out - 1)};
  }
}

bool Diagram::is_linked(uint32_t index) const {
  return std::ranges::none_of(wires(index), [](const Wire& wire) { return wire.block == no_index; });
}

Problem Diagram::check_cast(uint32_t index) {
  if (block(index).type() != "cast" || is_linked(index)) return {};
  return problem(cast_not_linked, index, "no link ends at its input");
}

Problem Diagram::check_from(uint32_t index) {
  if (block(index).type() != "from") return {};
  const std::string_view target = values(index).text(Property::target);
  if (goto_of(target) != no_index) return {};
  return bad_property(from_without_goto, index, Property::target,
                      fmt::format("\"{:s}\" is that of no goto", target));
}

Problem Diagram::check_goto(uint32_t index) {
  if (block(index).type() != "goto") return {};
  if (!is_linked(index)) return problem(goto_not_linked, index, "no link ends at its input");
  const std::string_view target = values(index).text(Property::target);
  if (froms_.contains(target)) return {};
  return bad_property(goto_not_linked, index, Property::target,
                      fmt::format("\"{:s}\" is read by no from", target));
}

Problem Diagram::check_inputs(uint32_t index) {
  const auto inputs = wires(index);
  for (size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i].block == no_index)
      return problem(port_not_linked, index, fmt::format("no link ends at input {}", i + 1));
  }
  return {};
}

Problem Diagram::check_links() const {
  const auto& links = model_->wires().links;
  for (size_t i = 0; i < links.size(); ++i) {
    const auto [from, to] = ends_[i];
    const Link& link = links[i];
    const std::string ends = fmt::format("The link from port {} of block {} to port {} of block {}",
                                         link.port_from, link.from, link.port_to, link.to);
    if (from == no_index || to == no_index) {
      const uint64_t known = from != no_index ? link.from : to != no_index ? link.to : top_id;
      return {port_not_linked, known, ends + " names a block that is not there"};
    }
    if (parents_[from] != parents_[to]) return {port_not_linked, link.from, ends + " joins two systems"};
    if (from == 0 || to == 0 || link.port_from < 1 || link.port_to < 1 ||
        link.port_from > static_cast<int>(ports_[from].outputs) ||
        link.port_to > static_cast<int>(ports_[to].inputs)) {
      return {port_not_linked, link.from, ends + " names a port that is not there"};
    }
  }
  return {};
}

std::vector<Diagram::Shown> Diagram::shown(uint32_t system) const {
  std::vector<Shown> result;
  const auto& links = model_->wires().links;
  const System& here = systems_.at(system);
  if (system == 0) {
    for (const uint32_t port : here.outports)
      result.push_back({attribute_name(block(port).name()), wires(port)[0]});
  }
  for (const uint32_t i : here.named_links) {
    const Wire source{ends_[i].from, static_cast<uint32_t>(links[i].port_from - 1)};
    result.push_back({attribute_name(links[i].name), source});
  }
  // Several links may repeat a name of one output.
  std::ranges::stable_sort(result, {}, &Shown::name);
  const auto repeated = std::ranges::unique(result, {}, &Shown::name);
  result.erase(repeated.begin(), repeated.end());
  return result;
}

}  // namespace plexo
