// The execution model: runs a program and keeps what is shown of it.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "blocks/flat.h"
#include "blocks/plexo.h"
#include "blocks/program.h"
#include "blocks/recorder.h"

namespace plexo {

class ExecModel final : public IExecModel {
 public:
  // Takes the model over; false if its program does not fit into memory.
  bool fill(std::shared_ptr<const FlatModel> flat);

  int run(const std::function<void()>& placed) override;

  const Results& results() const noexcept override { return results_; }
  uint64_t samples() const noexcept override { return recorder_ ? recorder_->samples() : 0; }
  double time(uint64_t sample) const noexcept override {
    return flat_->times.ti + static_cast<double>(sample) * flat_->times.ts;
  }
  const double* column(uint32_t index) const noexcept override { return recorder_->columns()[index].data(); }

 private:
  int simulate(uint64_t samples);

  std::shared_ptr<const FlatModel> flat_;
  Program program_;
  Results results_;
  std::vector<uint32_t> shown_;  // the signals of the columns
  mutable std::optional<Recorder> recorder_;
};

// How a piece of a run ended.
enum class Ended : uint8_t { not_yet, well, failed };

// What changes while a program runs.
struct Run {
  std::vector<double> numbers;  // signals and states
  uint64_t next_sample = 0;
};

// Runs the next `samples` samples.
Ended run_samples(const Program& program, const Times& times, uint64_t samples, Run& run, Recorder& recorder);

}  // namespace plexo
