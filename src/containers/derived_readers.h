// Readers whose source is another series: bit fields unpacked from it, and pieces cut out of it.
//
// A load of theirs loads the source, through its own readers, so nothing is read before it is needed; samples
// that a script has changed are used as they are.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "kernels/bit_field.h"
#include "objects/series.h"
#include "readers/reader.h"

namespace mirn2::rd {

// One variable, decoded from the bits of another.
class ReaderUnpacked : public Reader {
 public:
  ReaderUnpacked(std::shared_ptr<TimeSeries> source, kernels::BitField field, kernels::Coding coding)
      : Reader({}), source_(std::move(source)), field_(field), coding_(coding) {}

  void scan() override {}
  void load(rto_t& request) override;

  const std::shared_ptr<TimeSeries>& source() const noexcept { return source_; }

  // The variable's samples for these of its source.
  LoadedSamples decode(const LoadedSamples& source) const;

 private:
  std::shared_ptr<TimeSeries> source_;
  kernels::BitField field_;
  kernels::Coding coding_;
};

// A stretch of time, including both ends.
struct TimeWindow {
  double first;
  double last;
};

// The variables of a container between two times. A variable without a sample at the beginning of the window,
// but with one before it, gets a sample there with that value.
class ReaderWindow : public Reader {
 public:
  // The script gets `path` as the source's path.
  ReaderWindow(std::filesystem::path path, const std::vector<std::shared_ptr<TimeSeries>>& variables,
               TimeWindow window);

  void scan() override {}
  void load(rto_t& request) override;

 private:
  VariableNode node_of(const std::shared_ptr<TimeSeries>& series);

  TimeWindow window_;
  std::unordered_map<std::string, std::shared_ptr<TimeSeries>> sources_;  // by full name
};

}  // namespace mirn2::rd
