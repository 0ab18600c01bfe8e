// The series record, mirn2::TimeSeries: what is known about one variable, whoever shows it.
//
// The registry owns records; a script object (kvalo.TimeSeries) shows one. Records hold the names, the
// readers that can fill the samples, the loaded samples, and the child records of a structured signal.
//
// The vectors of a record change only under the interpreter lock.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "objects/column.h"

namespace mirn2 {

namespace rd {
class Reader;
}

struct TimeSeriesObject;

constexpr double earliest_time = std::numeric_limits<double>::lowest();
constexpr double latest_time = std::numeric_limits<double>::max();

// v = gain * v + offset, applied to an axis whenever its samples come from the source.
struct AxisScale {
  double gain = 1.0;
  double offset = 0.0;
  bool is_identity() const noexcept { return gain == 1.0 && offset == 0.0; }
};

class TimeSeries {
 public:
  TimeSeriesObject* owner = nullptr;  // the script object that shows this record now; not counted
  uint64_t id = 0;                    // key in the registry
  std::string main_name;              // the signal's own name
  std::string full_name;              // qualified by the levels above it; what readers are asked for
  uint64_t last_load = 0;             // stamp of the last load: the oldest make room first
  double tini = earliest_time;        // the time range it was opened with
  double tend = latest_time;
  ColumnPtr x;  // loaded samples; null when they are not there
  ColumnPtr y;
  std::vector<std::shared_ptr<rd::Reader>> readers;
  std::vector<std::weak_ptr<TimeSeries>> children;
  std::vector<std::weak_ptr<TimeSeries>> parents;
  AxisScale x_scale;
  AxisScale y_scale;
  Samples clock;                            // stamps that replace those of the source, where they are as many
  std::vector<TimeSeriesObject*> shown_by;  // every script object that shows it, the owner last
  int in_use = 0;                           // computations that hold its samples now

  // The child of this main name that is still alive, or null.
  std::shared_ptr<TimeSeries> child(std::string_view name) const;

  // A script object begins or ceases to show this record; the latest one is the owner. detach()
  // answers whether no other object shows it.
  void attach(TimeSeriesObject* object);
  bool detach(TimeSeriesObject* object) noexcept;

  bool is_loaded() const noexcept { return x && y && !x->empty() && !y->empty(); }

  // Whether dropping the samples loses nothing: a source can give them again, nobody computes with
  // them, and nobody has changed them.
  bool can_unload() const noexcept;
};

// The samples of one load, before they become a record's.
struct LoadedSamples {
  Samples x;
  Samples y;
};

// Gives the samples the stamps of the clock when they are as many; warns when they are not.
void set_clock(LoadedSamples& samples, const Samples& clock, const std::string& name);

// What a load needs of a record: taken under the interpreter lock, used without it.
class LoadPlan {
 public:
  explicit LoadPlan(const TimeSeries& record)
      : tag_key_(record.main_name),
        name_(record.full_name),
        readers_(record.readers),
        clock_(record.clock),
        x_scale_(record.x_scale),
        y_scale_(record.y_scale) {}

  // Asks every reader for its samples, replaces the stamps by the record's clock, and applies gain and
  // offset. Several recordings are joined in order of their first time stamp; where they overlap, samples are
  // merged by time, earlier readers first. Call without the interpreter lock; throws what readers throw.
  LoadedSamples run() const;

 private:
  LoadedSamples load_one(rd::Reader& reader) const;

  std::string tag_key_;
  std::string name_;
  std::vector<std::shared_ptr<rd::Reader>> readers_;
  Samples clock_;
  AxisScale x_scale_;
  AxisScale y_scale_;
};

// Holds a record's samples in memory while something computes with them.
class InUse {
 public:
  explicit InUse(std::shared_ptr<TimeSeries> record) : record_(std::move(record)) {
    if (record_) ++record_->in_use;
  }
  ~InUse() {
    if (record_) --record_->in_use;
  }
  InUse(const InUse&) = delete;
  InUse& operator=(const InUse&) = delete;

 private:
  std::shared_ptr<TimeSeries> record_;
};

// What the objects need of the registry that owns all records.
class SeriesRegistry {
 public:
  virtual ~SeriesRegistry() = default;

  // Registers a series that lives in memory only, shown by `object`; returns its new id.
  virtual uint64_t add_detached(std::string_view name, TimeSeriesObject* object) = 0;
  // The record of an id, or null.
  virtual std::shared_ptr<TimeSeries> find_by_id(uint64_t id) const = 0;
  // Drops the entry of an id, if there is one.
  virtual void drop(uint64_t id) noexcept = 0;
};

// The registry of this process; null before start-up and after teardown.
extern SeriesRegistry* series_registry;

}  // namespace mirn2
