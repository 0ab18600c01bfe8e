// Places the results of a run in the script, as series of nested results.
#include "blocks/placement.h"

#include <cstdlib>
#include <cstring>

#include "blocks/names.h"
#include "blocks/py_ref.h"

namespace plexo {

namespace {

namespace python = mirn3::python;
using python::object;
using python::table;

constexpr const char* capsule_name = "plexo.samples";

// Runs unless create_array has taken the memory over.
void free_samples(object capsule) { std::free(table.PyCapsule_GetPointer(capsule, capsule_name)); }

// An Array that owns the numbers, which come from malloc; null with the interpreter's error set.
object make_array(object kvalo, double* numbers, uint64_t count) {
  const Ref capsule(table.PyCapsule_New(numbers, capsule_name, free_samples));
  if (!capsule) {
    std::free(numbers);
    return nullptr;
  }
  return table.PyObject_CallMethod(kvalo, "create_array", "OK", capsule.get(),
                                   static_cast<unsigned long long>(count));
}

class Placement {
 public:
  Placement(object kvalo, const Times& times, Recorder& recorder)
      : kvalo_(kvalo), times_(times), recorder_(&recorder), uses_(recorder.columns().size()) {}

  // Null with the interpreter's error set.
  object place(const Results& results) {
    count(results);
    return system(results);
  }

 private:
  void count(const Results& results) {
    for (const auto& signal : results.signals) ++uses_[signal.column];
    for (const Results& inner : results.systems) count(inner);
  }

  object system(const Results& results) {
    object made = table.PyObject_CallMethod(kvalo_, "Result", nullptr);
    bool good = made != nullptr;
    for (const auto& signal : results.signals) good = good && set(made, signal.name, series(signal));
    for (const Results& inner : results.systems)
      good = good && set(made, attribute_name(inner.name), system(inner));
    if (good) return made;
    if (made != nullptr) table.Py_DecRef(made);
    return nullptr;
  }

  // Into the dictionary itself: a signal that is called like a member of the type ("flags") leaves that
  // alone.
  static bool set(object holder, const std::string& name, object owned) {
    const Ref value(owned);
    const Ref attributes(value ? table.PyObject_GetAttrString(holder, "__dict__") : nullptr);
    return attributes && table.PyDict_SetItemString(attributes.get(), name.c_str(), value.get()) == 0;
  }

  object series(const Results::Signal& signal) {
    const uint64_t n = recorder_->samples();
    Column stamps(n);
    for (uint64_t k = 0; k < n; ++k) stamps.data()[k] = times_.ti + static_cast<double>(k) * times_.ts;
    const Ref x(make_array(kvalo_, stamps.release(), n));
    const Ref y(x ? make_array(kvalo_, values(signal.column), n) : nullptr);
    object made =
        y ? table.PyObject_CallMethod(kvalo_, "TimeSeries", "s", signal.full_name.c_str()) : nullptr;
    if (made == nullptr) return nullptr;
    if (table.PyObject_SetAttrString(made, "xdata", x.get()) == 0 &&
        table.PyObject_SetAttrString(made, "ydata", y.get()) == 0) {
      return made;
    }
    table.Py_DecRef(made);
    return nullptr;
  }

  // The column itself for its last user, copies for those before.
  double* values(uint32_t column) {
    Column& kept = recorder_->columns()[column];
    if (--uses_[column] == 0) return kept.release();
    Column copy(recorder_->samples());
    std::memcpy(copy.data(), kept.data(), recorder_->samples() * sizeof(double));
    return copy.release();
  }

  object kvalo_;
  Times times_;
  Recorder* recorder_;
  std::vector<uint32_t> uses_;
};

}  // namespace

bool can_place() { return python::is_filled() && table.PyCapsule_GetPointer != nullptr; }

bool place(const Results& results, const Times& times, Recorder& recorder,
           const std::function<void()>& placed) {
  const python::Lock lock;
  const Ref kvalo(table.PyImport_ImportModule("kvalo"));
  if (!kvalo) return false;
  const Ref made(Placement(kvalo.get(), times, recorder).place(results));
  object main = made ? table.PyImport_AddModule("__main__") : nullptr;
  if (main == nullptr || table.PyObject_SetAttrString(main, "mainsys", made.get()) != 0) return false;
  if (placed) placed();
  return true;
}

bool is_interrupted() {
  if (!python::is_filled() || table.PyErr_CheckSignals == nullptr) return false;
  const python::Lock lock;
  return table.PyErr_CheckSignals() != 0;
}

}  // namespace plexo
