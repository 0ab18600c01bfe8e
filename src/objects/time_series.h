// kvalo.TimeSeries: the script object that shows a series record, or holds a series of its own.
#pragma once

#include <Python.h>

#include <memory>
#include <string>

#include "objects/array.h"
#include "objects/frame.h"
#include "objects/ref.h"
#include "objects/series.h"

namespace mirn2 {

struct TimeSeriesObject {
  PyObject_HEAD PyObject* dict;  // __dict__: child series are attributes
  uint64_t id64;                 // key of the record in the registry
  uint64_t flags;
  PyObject* xdata;  // kvalo.Array, or null when not loaded; scripts may put anything here
  PyObject* ydata;
  std::shared_ptr<TimeSeries>* source;  // the record shown, kept alive; null for a series built by a script
  char* script;                         // creation script, from malloc
};

// Bits of `flags`.
constexpr uint64_t pattern_mask = 0x7;
constexpr uint64_t pattern_varying = 0x1;
constexpr uint64_t flag_has_children = 0x8;
constexpr uint64_t flag_loadable = 0x80;
constexpr uint64_t flag_created_by_id = 0x100;
constexpr uint64_t flag_load_started = 0x200;

extern PyTypeObject TimeSeriesType;

// The object as a series when it is one (or a subtype), else null; accepts null.
TimeSeriesObject* as_series(PyObject* object) noexcept;

// The same for an argument: throws TypeError "Argument must be a kvalo.TimeSeries object".
TimeSeriesObject* series_argument(PyObject* object);

// The record shown, or null.
TimeSeries* record_of(const TimeSeriesObject* series) noexcept;

// The column of an axis, or null when there is no Array (not loaded, or replaced by something else).
Column* axis_of(PyObject* axis) noexcept;

// Loads the samples from the source unless they are there already or there is no source; a source may
// turn out to have none. Throws what readers throw, and script_error when the object is not loadable.
void load_samples(TimeSeriesObject* series);

// The same; no samples are a failure too: Exception "X-Axis data is empty" or "Y-Axis data is empty".
void load_series(TimeSeriesObject* series);

// The same for everything that needs samples: only when xdata is not there.
void ensure_loaded(TimeSeriesObject* series);

// Shows `record` in a new script object, with its children as attributes. Throws python_error.
Ref show_record(uint64_t id, double tini, double tend);

// The script object that shows the record, made anew when there is none. Throws python_error.
Ref object_of(const std::shared_ptr<TimeSeries>& record);

// Puts the script object of a series into an instance dictionary under its attribute name. It goes in
// directly: a series that is called like a member ("flags", "xdata") must not overwrite it. A series
// that had the name before moves to a key that is no identifier, so that it lives on and the mapping
// still finds it. Throws python_error.
void set_child_attribute(PyObject** dict, const TimeSeries& series, PyObject* object);

// Replaces the creation script; one of more than a mebibyte is not kept, and the series keeps the name it
// was born with. Throws std::bad_alloc.
void set_script(TimeSeriesObject* series, const std::string& script);

// Drops the loaded samples of a record and of the objects that show it. Does nothing, and answers
// false, while they cannot be had again or a script holds one of the Arrays. Call with the interpreter
// lock; emptied Arrays are put into `dropped`, to be released when no other lock is held.
bool unload(TimeSeries& record, std::vector<Ref>& dropped);

// Forgets the loaded samples of a record whose sources have changed, so that the next use loads them
// anew; Arrays that a script holds keep theirs. Samples that a script has changed stay, with a warning.
void forget_samples(TimeSeries& record);

// Gives a record a gain and an offset for one axis and applies them to the samples that are loaded.
void scale_axis(TimeSeries& record, AxisScale TimeSeries::*scale, ColumnPtr TimeSeries::*axis,
                AxisScale value);

// The name of a series where a text is built from it: the record's main name when it has one, else
// the creation script.
std::string name_of(const TimeSeriesObject* series);

// A series taken into a computation: loaded, and with its samples held until the computation ends,
// whatever is unloaded or replaced meanwhile.
class Operand {
 public:
  // Loads the series if need be. Throws what loading throws; Exception "kvalo.TimeSeries object is
  // empty" when there is nothing to load from; ValueError when x and y differ in size.
  explicit Operand(TimeSeriesObject* series);

  std::span<const double> x() const noexcept { return x_.span(); }
  std::span<const double> y() const noexcept { return y_.span(); }
  uint64_t size() const noexcept { return x_.size(); }
  const std::string& name() const noexcept { return name_; }

  // The time stamps for a result: shared, so it must be called with the interpreter lock.
  Samples time() const { return x_.snapshot(); }

  // Whether the time stamps ascend strictly. Looks at them once for all series that share them.
  bool has_ascending_time() const;

 private:
  InUse in_use_;
  std::string name_;
  Samples x_;
  Samples y_;
};

// A new series of a computation's result, registered under a random name. Throws Exception "Internal error
// while creating kvalo.TimeSeries".
Ref make_result(Samples x, Samples y);

// The result of a computation on one series: its time stamps, and values that `fill` writes, all of them,
// without the interpreter lock.
template <typename Fill>
Ref result_like(const Operand& operand, Fill&& fill) {
  Samples y;
  y.resize_for_overwrite(operand.size());
  Samples time = operand.time();
  without_gil([&] { fill(y.span()); });
  return make_result(std::move(time), std::move(y));
}

// The registry; throws RuntimeError after teardown.
SeriesRegistry& registry();

}  // namespace mirn2
