// Turns the tree of systems into one flat list of computing blocks in order of execution.
#include "blocks/flatten.h"

#include <fmt/format.h>

#include <cmath>

namespace plexo {

namespace {

// What an output is: the signal of a computing block, or one that another output stands for.
class Signals {
 public:
  Signals(const Diagram& diagram, FlatModel& flat) : diagram_(&diagram), flat_(&flat) {
    first_.reserve(diagram.size() + 1);
    uint32_t outputs = 0;
    for (uint32_t i = 0; i < diagram.size(); ++i) {
      first_.push_back(outputs);
      outputs += diagram.ports(i).outputs;
    }
    signals_.assign(outputs, unknown);
  }

  void define(const Wire& output, uint32_t signal) { at(output) = signal; }

  // The signal of an output; no_index, with the outputs of the cycle in `loop`, if it is wired to itself.
  uint32_t find(Wire output, std::vector<uint32_t>& loop) {
    trail_.clear();
    while (at(output) == unknown) {
      at(output) = on_the_way;
      trail_.push_back(output);
      output = next(output);
    }
    const uint32_t signal = at(output);
    if (signal == on_the_way) {
      size_t start = 0;
      while (trail_[start].block != output.block || trail_[start].port != output.port) ++start;
      for (size_t i = start; i < trail_.size(); ++i) loop.push_back(trail_[i].block);
      return no_index;
    }
    for (const Wire& passed : trail_) at(passed) = signal;
    return signal;
  }

 private:
  static constexpr uint32_t unknown = no_index;
  static constexpr uint32_t on_the_way = no_index - 1;

  uint32_t& at(const Wire& output) { return signals_[first_[output.block] + output.port]; }

  // One step from an output that no cell makes toward the one that does.
  Wire next(const Wire& output) const {
    const std::string_view type = diagram_->block(output.block).type();
    if (type == "subsys") return diagram_->wires(diagram_->outports(output.block)[output.port])[0];
    if (type == "from")
      return diagram_->wires(diagram_->goto_of(diagram_->values(output.block).text(Property::target)))[0];
    return diagram_->wires(diagram_->parent(output.block))[diagram_->port_index(output.block)];  // an inport
  }

  const Diagram* diagram_;
  FlatModel* flat_;
  std::vector<uint32_t> first_;
  std::vector<uint32_t> signals_;
  std::vector<Wire> trail_;
};

bool computes(const Diagram& diagram, uint32_t index) {
  const Kind& kind = diagram.block(index).kind();
  return kind.lower != nullptr && (kind.type != "inport" || diagram.parent(index) == 0);
}

// "plant.motor.gain3"
std::string path_name(const Diagram& diagram, uint32_t index) {
  std::string name = diagram.block(index).name();
  for (uint32_t i = diagram.parent(index); i != 0 && i != no_index; i = diagram.parent(i)) {
    name.insert(0, diagram.block(i).name() + '.');
  }
  return name;
}

void add_cell(const Diagram& diagram, uint32_t index, Lowered& lowered, FlatModel& flat) {
  const Kind& kind = diagram.block(index).kind();
  const Ports ports = diagram.ports(index);
  lowered.clear();
  kind.lower(diagram.values(index), lowered);
  const bool is_filled = lowered.fill_count > 0;
  flat.cells.push_back({.op = lowered.op,
                        .next = lowered.next,
                        .inputs = static_cast<uint16_t>(ports.inputs),
                        .outputs = static_cast<uint16_t>(ports.outputs),
                        .block = index,
                        .input = 0,
                        .signal = ports.outputs != 0 ? flat.signal_count : no_index,
                        .parameter = static_cast<uint32_t>(flat.parameters.size()),
                        .state = static_cast<uint32_t>(is_filled ? flat.fills.size() : flat.states.size()),
                        .table = static_cast<uint32_t>(flat.tables.size())});
  flat.cell_ids.push_back(diagram.block(index).id());
  flat.cell_names.push_back(path_name(diagram, index));
  flat.signal_count += ports.outputs;
  flat.parameters.insert(flat.parameters.end(), lowered.parameters.begin(), lowered.parameters.end());
  if (is_filled) {
    flat.fills.push_back({lowered.fill_count, lowered.fill_value});
  } else {
    flat.states.insert(flat.states.end(), lowered.states.begin(), lowered.states.end());
  }
  for (const auto& table : lowered.tables) {
    if (lowered.kept_alive) {
      flat.tables.push_back(table);
    } else {
      flat.own_tables.emplace_back(table.begin(), table.end());
      flat.tables.push_back(flat.own_tables.back());
    }
  }
  if (lowered.kept_alive) flat.kept_alive.push_back(lowered.kept_alive);
}

Problem loop_problem(const Diagram& diagram, const std::vector<uint32_t>& blocks) {
  std::string text = "Algebraic loop: ";
  constexpr size_t most = 100;
  for (size_t i = 0; i < std::min(blocks.size(), most); ++i) {
    text +=
        fmt::format("block {:d} ({:s}) -> ", diagram.block(blocks[i]).id(), path_name(diagram, blocks[i]));
  }
  if (blocks.size() > most) text += fmt::format("{} more blocks -> ", blocks.size() - most);
  text += fmt::format("block {:d}. A block that reads its input later, such as a delay, breaks it",
                      diagram.block(blocks.front()).id());
  return {algebraic_loop, diagram.block(blocks.front()).id(), text};
}

// The systems that show something, with their signals.
Results results_of(const Diagram& diagram, uint32_t system, const std::string& path, Signals& signals,
                   std::vector<uint32_t>& loop) {
  Results results{.name = diagram.block(system).name(), .signals = {}, .systems = {}};
  for (const Diagram::Shown& shown : diagram.shown(system)) {
    const uint32_t signal = signals.find(shown.source, loop);
    if (signal == no_index) return results;
    results.signals.push_back({shown.name, path + '.' + shown.name, signal});
  }
  for (const uint32_t inner : diagram.systems_within(system)) {
    Results within = results_of(diagram, inner, path + '.' + diagram.block(inner).name(), signals, loop);
    if (!loop.empty()) return results;
    if (!within.signals.empty() || !within.systems.empty()) results.systems.push_back(std::move(within));
  }
  return results;
}

}  // namespace

double FlatModel::samples() const noexcept {
  return std::floor((times.tf - times.ti) / times.ts + 1e-6) + 1.0;
}

Problem flatten(const Diagram& diagram, bool sorts, FlatModel& flat) {
  Lowered lowered;
  for (uint32_t i = 0; i < diagram.size(); ++i) {
    if (computes(diagram, i)) add_cell(diagram, i, lowered, flat);
  }

  Signals signals(diagram, flat);
  for (const Cell& cell : flat.cells) {
    for (uint16_t port = 0; port < cell.outputs; ++port)
      signals.define({cell.block, port}, cell.signal + port);
  }
  std::vector<uint32_t> loop;
  for (Cell& cell : flat.cells) {
    cell.input = static_cast<uint32_t>(flat.inputs.size());
    for (const Wire& wire : diagram.wires(cell.block)) {
      flat.inputs.push_back(signals.find(wire, loop));
      if (!loop.empty()) return loop_problem(diagram, loop);
    }
  }
  for (const uint32_t port : diagram.inports(0)) {
    flat.inports.push_back({diagram.block(port).name(), signals.find({port, 0}, loop),
                            diagram.values(port).number(Property::initial_value)});
  }
  for (const uint32_t port : diagram.outports(0)) {
    flat.outports.push_back({diagram.block(port).name(), signals.find(diagram.wires(port)[0], loop)});
    if (!loop.empty()) return loop_problem(diagram, loop);
  }
  flat.results = results_of(diagram, 0, diagram.block(0).name(), signals, loop);
  // Wires that feed no cell and are not shown may still run in a circle.
  for (uint32_t i = 1; i < diagram.size(); ++i) {
    for (const Wire& wire : diagram.wires(i)) {
      if (loop.empty()) signals.find(wire, loop);
    }
  }
  if (!loop.empty()) return loop_problem(diagram, loop);
  if (!sorts) return {};
  if (!sort_cells(flat, loop)) {
    for (uint32_t& cell : loop) cell = flat.cells[cell].block;
    return loop_problem(diagram, loop);
  }
  return {};
}

}  // namespace plexo
