// A flat model as the executor runs it: flat arrays of records, numbers and operands.
#pragma once

#include <cstdint>
#include <vector>

#include "blocks/flat.h"
#include "blocks/ops.h"

namespace plexo {

// One operation: where its inputs, output, parameters, states and tables are.
struct Step {
  Op op;
  uint16_t count;  // of the operands, if it has any number of inputs
  uint32_t out;    // signal
  uint32_t in[3];  // signals; with any number of inputs in[0] is the place of the operands
  uint32_t parameter;
  uint32_t state;
  uint32_t table;
};
static_assert(sizeof(Step) == 32);

struct Program {
  // The outputs, end_of_outputs, what is stored for the next sample, end_of_sample.
  std::vector<Step> steps;
  std::vector<uint32_t> operands;  // signals
  std::vector<double> parameters;
  // Signals, then states, as they are before the first sample: constants are there for good.
  std::vector<double> numbers;
  std::vector<std::span<const double>> tables;
};

// How many states the program of a model has.
double count_states(const FlatModel& flat);

Program make_program(const FlatModel& flat);

}  // namespace plexo
