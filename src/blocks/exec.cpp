// Runs a program over all samples, and hands the results over.
#include "blocks/exec.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <unordered_map>

#include "blocks/placement.h"
#include "runtime/log.h"
#include "runtime/mem.h"

namespace plexo {

namespace {

enum : int { success = 0, failed_assert = 1, interrupted = 2, no_room = 3, not_ready = 4 };

constexpr double most_samples = 2147483648.0;
constexpr double most_numbers = 4294967295.0;             // that a record can tell apart
constexpr auto patience = std::chrono::milliseconds(50);  // between looks for an interrupt
constexpr uint64_t steps_in_a_piece = 1'000'000;

int refuse(const std::string& why) {
  mirn3::log::write(mirn3::log::warning, why);
  return no_room;
}

bool fits(double numbers) {
  return numbers * sizeof(double) <= static_cast<double>(mirn3::mem::memory_bank.load());
}

// Signals become columns: one for each that is shown, however many names it has.
void number_columns(Results& results, std::unordered_map<uint32_t, uint32_t>& columns,
                    std::vector<uint32_t>& shown) {
  for (Results::Signal& signal : results.signals) {
    const auto [entry, is_new] = columns.try_emplace(signal.column, static_cast<uint32_t>(shown.size()));
    if (is_new) shown.push_back(signal.column);
    signal.column = entry->second;
  }
  for (Results& system : results.systems) number_columns(system, columns, shown);
}

size_t count_signals(const Results& results) {
  size_t count = results.signals.size();
  for (const Results& system : results.systems) count += count_signals(system);
  return count;
}

}  // namespace

bool ExecModel::fill(std::shared_ptr<const FlatModel> flat) {
  recorder_.reset();
  flat_.reset();
  const double states = count_states(*flat);
  if (states + flat->signal_count > most_numbers || !fits(2.0 * (states + flat->signal_count))) {
    refuse(fmt::format("The model stores {:.0f} numbers from sample to sample, which do not fit into memory",
                       states));
    return false;
  }
  program_ = make_program(*flat);
  results_ = flat->results;
  shown_.clear();
  std::unordered_map<uint32_t, uint32_t> columns;
  number_columns(results_, columns, shown_);
  flat_ = std::move(flat);
  return true;
}

int ExecModel::simulate(uint64_t samples) {
  Run run{.numbers = program_.numbers};
  recorder_.emplace(shown_, samples);
  const uint64_t piece = std::max<uint64_t>(1, steps_in_a_piece / program_.steps.size());
  auto looked = std::chrono::steady_clock::now();
  Ended ended = Ended::not_yet;
  while (ended == Ended::not_yet && run.next_sample < samples) {
    ended = run_samples(program_, flat_->times, std::min(piece, samples - run.next_sample), run, *recorder_);
    const auto now = std::chrono::steady_clock::now();
    if (now - looked < patience) continue;
    looked = now;
    if (is_interrupted()) return interrupted;
  }
  recorder_->finish();
  if (ended == Ended::failed) {
    mirn3::log::write(mirn3::log::warning, fmt::format("An assert failed in sample {}, at t = {}",
                                                       run.next_sample, time(run.next_sample)));
    return failed_assert;
  }
  return success;
}

int ExecModel::run(const std::function<void()>& placed) {
  if (flat_ == nullptr) return not_ready;
  recorder_.reset();
  const double samples = flat_->samples();
  if (!(samples <= most_samples))
    return refuse(fmt::format("A run of {} samples is too long: 2147483648 is the most", samples));
  // Each series that is shown has times of its own.
  if (!fits(samples * static_cast<double>(shown_.size() + count_signals(results_)))) {
    return refuse(
        fmt::format("{} signals of {} samples do not fit into the memory budget: show fewer of them, or "
                    "run for a shorter time",
                    count_signals(results_), samples));
  }
  int result = success;
  try {
    result = simulate(static_cast<uint64_t>(samples));
    if (result == success && can_place()) {
      if (!place(results_, flat_->times, *recorder_, placed)) result = not_ready;
      recorder_.reset();
    }
  } catch (const std::bad_alloc&) {
    result = refuse("There is not enough memory for what the run shows");
  }
  if (result != success) recorder_.reset();
  return result;
}

std::shared_ptr<IExecModel> create_empty_exec_model() { return std::make_shared<ExecModel>(); }

}  // namespace plexo
