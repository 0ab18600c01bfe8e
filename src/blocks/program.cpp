// Compiles the flat blocks into the records that the execution loop runs over.
#include "blocks/program.h"

#include <algorithm>

namespace plexo {

namespace {

bool takes_any_number(Op op) {
  switch (op) {
    case Op::sum:
    case Op::product:
    case Op::smallest:
    case Op::largest:
    case Op::all_of:
    case Op::any_of:
    case Op::odd_of:
    case Op::not_all_of:
    case Op::none_of:
    case Op::pick:
      return true;
    default:
      return false;
  }
}

Step make_step(const FlatModel& flat, const Cell& cell, uint32_t state, Program& program) {
  Step step{.op = cell.op,
            .count = cell.op == Op::bits ? cell.outputs : cell.inputs,
            .out = cell.signal,
            .in = {0, 0, 0},
            .parameter = cell.parameter,
            .state = state,
            .table = cell.table};
  if (takes_any_number(cell.op)) {
    step.in[0] = static_cast<uint32_t>(program.operands.size());
    for (uint32_t i = 0; i < cell.inputs; ++i) program.operands.push_back(flat.inputs[cell.input + i]);
  } else {
    std::copy_n(flat.inputs.begin() + cell.input, cell.inputs, step.in);
  }
  return step;
}

// Which signals another cell reads when it stores its state.
std::vector<bool> signals_read_later(const FlatModel& flat) {
  std::vector<bool> result(flat.signal_count);
  for (const Cell& cell : flat.cells) {
    if (cell.next == Op::end_of_sample) continue;
    for (uint32_t i = 0; i < cell.inputs; ++i) {
      const uint32_t signal = flat.inputs[cell.input + i];
      if (signal != cell.signal) result[signal] = true;
    }
  }
  return result;
}

}  // namespace

double count_states(const FlatModel& flat) {
  double count = static_cast<double>(flat.states.size());
  for (const Fill& fill : flat.fills) count += 1.0 + static_cast<double>(fill.count);
  return count;
}

Program make_program(const FlatModel& flat) {
  Program program;
  program.parameters = flat.parameters;
  program.tables = flat.tables;
  program.numbers.resize(flat.signal_count);
  program.numbers.insert(program.numbers.end(), flat.states.begin(), flat.states.end());
  std::vector<uint32_t> fill_places;
  for (const Fill& fill : flat.fills) {
    fill_places.push_back(static_cast<uint32_t>(program.numbers.size()));
    program.numbers.push_back(0.0);
    program.numbers.resize(program.numbers.size() + fill.count, fill.value);
  }
  const std::vector<bool> is_read_later = signals_read_later(flat);

  std::vector<Step> later;
  size_t level_begin = 0;
  uint32_t level = 0;
  // Within a level no order matters. Equal operations side by side are run in a tight loop.
  const auto group = [&] {
    std::stable_sort(program.steps.begin() + static_cast<ptrdiff_t>(level_begin), program.steps.end(),
                     [](const Step& a, const Step& b) { return a.op < b.op; });
    level_begin = program.steps.size();
  };
  for (const Cell& cell : flat.cells) {
    if (cell.level != level) group();
    level = cell.level;
    if (cell.op == Op::constant || cell.op == Op::external) {
      program.numbers[cell.signal] = flat.parameters[cell.parameter];
      continue;
    }
    Step step = make_step(flat, cell, flat.signal_count + cell.state, program);
    if (cell.next == Op::delay_next) step.state = fill_places[cell.state];
    if (cell.op == Op::stored && !is_read_later[cell.signal]) {
      // The signal is the state itself: nobody minds that it is renewed once the outputs are done.
      program.numbers[cell.signal] = program.numbers[step.state];
      step.state = cell.signal;
    } else {
      program.steps.push_back(step);
    }
    if (cell.next != Op::end_of_sample) {
      later.push_back(step);
      later.back().op = cell.next;
    }
  }
  group();
  std::ranges::stable_sort(later, {}, &Step::op);
  program.steps.push_back({Op::end_of_outputs, 0, 0, {0, 0, 0}, 0, 0, 0});
  program.steps.insert(program.steps.end(), later.begin(), later.end());
  program.steps.push_back({Op::end_of_sample, 0, 0, {0, 0, 0}, 0, 0, 0});
  return program;
}

}  // namespace plexo
