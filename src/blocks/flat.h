// A model without systems: the computing blocks with their wires, sorted, and what is shown of them.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "blocks/kind.h"
#include "blocks/plexo.h"

namespace plexo {

inline constexpr uint32_t no_index = ~uint32_t{0};

// One computing block. All indexes are into the vectors of the FlatModel.
struct Cell {
  Op op;
  Op next;          // what stores its state after all outputs; end_of_sample: nothing
  uint16_t inputs;  // how many
  uint16_t outputs;
  uint32_t block;   // its place in the model it came from
  uint32_t input;   // first of its inputs
  uint32_t signal;  // first of its outputs; no_index without one
  uint32_t parameter;
  uint32_t state;  // first of its states; its fill, where its next operation is delay_next
  uint32_t table;
  uint32_t level = 0;  // counted from 1
};

// The states of a cell that stores many numbers of one value: a 0, and then as many of them.
struct Fill {
  uint64_t count;
  double value;
};

// An inport or outport of the top block, in the order of their numbers.
struct TopPort {
  std::string name;
  uint32_t signal;
  double initial = 0.0;  // of an inport
};

struct FlatModel {
  Times times;
  std::vector<Cell> cells;       // in the order of evaluation
  std::vector<uint32_t> inputs;  // signals
  std::vector<double> parameters;
  std::vector<double> states;  // initial values, but for fills
  std::vector<Fill> fills;     // their states come after all others
  uint32_t signal_count = 0;
  std::vector<std::span<const double>> tables;
  std::vector<std::string> cell_names;  // names of systems and block, for people
  std::vector<uint64_t> cell_ids;
  std::vector<TopPort> inports;
  std::vector<TopPort> outports;
  Results results;  // whose columns are signals here
  uint32_t tiers = 0;
  uint32_t zones = 0;

  std::deque<std::vector<double>> own_tables;
  std::vector<std::shared_ptr<series_t>> kept_alive;

  // Number of samples of a whole run; infinite if it cannot be counted.
  double samples() const noexcept;
};

}  // namespace plexo
