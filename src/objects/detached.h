// The reader of a series that exists only in memory: it hands out the samples of the script object
// that the series was made with.
#pragma once

#include "readers/reader.h"

namespace mirn2 {

class TimeSeries;
struct TimeSeriesObject;

class ReaderDetached : public rd::Reader {
 public:
  explicit ReaderDetached(TimeSeriesObject* object) : Reader({}), object_(object) {}

  void scan() override {}
  void load(rd::rto_t& request) override;

  // Lets the record show the very columns of the object. Call with the interpreter lock.
  void show(TimeSeries& record) const;

  rd::LoaderState state() const noexcept override { return rd::LoaderState::detached; }

  // The object goes away: later loads give nothing.
  void cut(const TimeSeriesObject* object) noexcept {
    if (object_ == object) object_ = nullptr;
  }

 private:
  TimeSeriesObject* object_;  // changes only under the interpreter lock
};

}  // namespace mirn2
