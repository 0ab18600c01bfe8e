// Module functions: synthetic signals, surfaces and arrays.
#include "kernels/generators.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include "functions/families.h"
#include "kernels/random.h"
#include "objects/mesh.h"
#include "objects/time_series.h"
#include "runtime/entropy.h"
#include "runtime/machine.h"
#include "runtime/mem.h"
#include "runtime/str.h"

namespace mirn2::fn {

namespace {

// ---- common ----

// Bytes that this machine can hold: its memory, or the limit of the process's group, of which the memory
// budget is one half unless somebody set it by hand.
double memory_of_machine() {
  const auto physical = static_cast<double>(mirn3::machine::physical_memory());
  if (std::getenv("KVALO_MEMORY_BANK") != nullptr) return physical;
  return std::min(physical, 2.0 * static_cast<double>(mirn3::mem::memory_bank.load()));
}

// Refuses more numbers than could ever be filled, before memory is asked for: the system might promise
// it and end the process later.
void require_memory(double numbers) {
  const double bytes = numbers * sizeof(double);
  const double limit = memory_of_machine();
  if (bytes <= limit) return;
  fail(PyExc_MemoryError, "The result would take {:g} bytes, more than this machine has ({:g}): ask for less",
       bytes, limit);
}

Samples new_samples(uint64_t count) {
  Samples samples;
  samples.resize_for_overwrite(count);
  return samples;
}

// A regular time base.
struct TimeBase {
  double xmin;
  double xmax;
  double xdiff;

  uint64_t count() const { return kernels::regular_count(xmin, xmax, xdiff); }
};

// The time base that a series here is made on.
TimeBase checked_base(double xmin, double xmax, double xdiff) {
  if (xdiff <= 0) fail(PyExc_ValueError, "Time step (xdiff) value must be positive");
  if (xmin >= xmax) fail(PyExc_ValueError, "Final time value must be greater than the initial time value");
  if (!std::isfinite(xmin) || !std::isfinite(xmax) || !std::isfinite(xdiff)) {
    fail(PyExc_ValueError, "Time values (xmin, xmax, xdiff) must be finite numbers");
  }
  return {xmin, xmax, xdiff};
}

// A new series on the checked time base; compute(t, y) writes the values, without the interpreter lock.
template <typename Compute>
Ref series_on(const TimeBase& base, const Compute& compute) {
  const uint64_t count = base.count();
  require_memory(2.0 * static_cast<double>(count));
  Samples x = new_samples(count);
  Samples y = new_samples(count);
  without_gil([&] {
    kernels::regular_axis(base.xmin, base.xdiff, x.span());
    compute(std::span<const double>(x.span()), y.span());
  });
  return make_result(std::move(x), std::move(y));
}

// ---- signals ----

Ref create_const(double value, double xmin, double xmax, double xdiff) {
  return series_on(checked_base(xmin, xmax, xdiff), [&](auto, auto y) { kernels::constant(value, y); });
}

Ref create_ramp(double rxmin, double rxmax, double ymin, double ymax, double xmin, double xmax,
                double xdiff) {
  const TimeBase base = checked_base(xmin, xmax, xdiff);
  if (!(rxmin < rxmax)) {
    fail(PyExc_ValueError, "Final ramp time value must be greater than the initial time value");
  }
  const kernels::Ramp ramp{.first = rxmin, .last = rxmax, .ymin = ymin, .ymax = ymax};
  Ref result = series_on(base, [&](auto x, auto y) { kernels::ramp(x, ramp, y); });
  set_script(as_series(result.get()),
             fmt::format("kvalo.create_ramp(rxmin={:g}, rxmax={:g}, ymin={:g}, ymax={:g}, xmin={:g}, "
                         "xmax={:g}, xdiff={:g})",
                         rxmin, rxmax, ymin, ymax, xmin, xmax, xdiff));
  return result;
}

Ref create_step(double edge, double ymin, double ymax, double xmin, double xmax, double xdiff) {
  return series_on(checked_base(xmin, xmax, xdiff),
                   [&](auto, auto y) { kernels::step(edge, ymin, ymax, xdiff, y); });
}

Ref create_sine(double freq, double phase, double amplitude, double xmin, double xmax, double xdiff) {
  const kernels::Sine sine{.freq = freq, .phase = phase, .amplitude = amplitude};
  return series_on(checked_base(xmin, xmax, xdiff), [&](auto, auto y) { kernels::sine(sine, xdiff, y); });
}

Ref create_chirp(double xmin, double xmax, double xdiff, double freq_start, double freq_end) {
  if (freq_start < 0 || freq_end < 0) fail(PyExc_ValueError, "Frequency value must be positive");
  return series_on(checked_base(xmin, xmax, xdiff),
                   [&](auto t, auto y) { kernels::chirp(t, freq_start, freq_end, y); });
}

// ---- random numbers ----

unsigned int random_seed() {
  unsigned int seed = 0;
  mirn3::fill_random(&seed, sizeof seed);
  return seed;
}

struct Values {
  bool normal;
  bool integers;
  double ymin;
  double ymax;

  double mean() const { return (ymin + ymax) / 2; }
  double spread() const { return (ymax - ymin) / 6; }
  double lowest_integer() const { return std::ceil(std::min(ymin, ymax)); }
  double highest_integer() const { return std::floor(std::max(ymin, ymax)); }

  void check() const {
    if (!std::isfinite(ymax - ymin) || !std::isfinite(ymax + ymin)) {
      fail(PyExc_ValueError, "Limits (ymin, ymax) must be finite numbers, and so must their difference");
    }
    if (normal || !integers) return;
    constexpr double exact = 9007199254740992.0;  // 2^53: from here on doubles leave integers out
    if (std::fabs(ymin) > exact || std::fabs(ymax) > exact) {
      fail(PyExc_ValueError, "Limits (ymin, ymax) of integers must lie within 2^53");
    }
    if (lowest_integer() > highest_integer()) {
      fail(PyExc_ValueError, "There is no integer between the limits {:g} and {:g}", ymin, ymax);
    }
  }

  void draw(kernels::Twister& engine, std::span<double> out) const {
    if (normal) {
      (integers ? kernels::normal_integers : kernels::normal_reals)(engine, mean(), spread(), out);
    } else if (integers) {
      kernels::uniform_integers(engine, static_cast<int64_t>(lowest_integer()),
                                static_cast<int64_t>(highest_integer()), out);
    } else {
      kernels::uniform_reals(engine, ymin, ymax, out);
    }
  }
};

Ref create_random(const char* dist, const char* type, std::optional<unsigned int> seed, double ymin,
                  double ymax, double xmin, double xmax, double xdiff) {
  const TimeBase base = checked_base(xmin, xmax, xdiff);
  const Values values{mirn3::str::to_lower(dist) == "normal", mirn3::str::to_lower(type) == "int", ymin,
                      ymax};
  values.check();
  kernels::Twister engine(seed ? *seed : random_seed());
  return series_on(base, [&](auto, auto y) { values.draw(engine, y); });
}

// ---- a surface ----

void check_axis(const TimeBase& axis, const char* name) {
  if (!(axis.xdiff > 0)) fail(PyExc_ValueError, "Step ({:s}diff) of the mesh must be positive", name);
  if (!(axis.xmin < axis.xmax)) {
    fail(PyExc_ValueError,
         "Final value ({0:s}max) of the mesh must be greater than the initial one ({0:s}min)", name);
  }
  if (!std::isfinite(axis.xmin) || !std::isfinite(axis.xmax) || !std::isfinite(axis.xdiff)) {
    fail(PyExc_ValueError, "Limits and step ({0:s}min, {0:s}max, {0:s}diff) must be finite numbers", name);
  }
}

Ref create_mesh_sinc(double xmin, double xmax, double xdiff, double zmin, double zmax, double zdiff) {
  const TimeBase x_base{xmin, xmax, xdiff};
  const TimeBase z_base{zmin, zmax, zdiff};
  check_axis(x_base, "x");
  check_axis(z_base, "z");
  const auto columns = static_cast<double>(x_base.count());
  const auto rows = static_cast<double>(z_base.count());
  require_memory(columns * rows + columns + rows);
  Samples x = new_samples(x_base.count());
  Samples z = new_samples(z_base.count());
  Samples values = new_samples(x.size() * z.size());
  without_gil([&] {
    kernels::regular_axis(xmin, xdiff, x.span());
    kernels::regular_axis(zmin, zdiff, z.span());
    kernels::sinc(x.span(), z.span(), values.span());
  });
  return make_mesh(std::move(x), std::move(values), std::move(z));
}

// ---- arrays ----

// A count of elements; one beyond the size type does not fit in memory either.
uint64_t count_argument(PyObject* value) {
  if (!PyLong_Check(value)) fail(PyExc_TypeError, "Argument must be an integer");
  const size_t count = PyLong_AsSize_t(value);
  if (count == static_cast<size_t>(-1) && PyErr_Occurred() != nullptr) {
    PyErr_Clear();
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value, &overflow);
    if (overflow < 0 || (overflow == 0 && number < 0)) {
      fail(PyExc_ValueError, "Argument must not be negative");
    }
    throw std::bad_alloc();
  }
  return count;
}

// fill(count) returns the samples; it is called without the interpreter lock.
template <auto fill>
Ref new_array(PyObject* count_object) {
  const uint64_t count = count_argument(count_object);
  require_memory(static_cast<double>(count));
  return make_array(without_gil([&] { return fill(count); }));
}

Samples random_samples(uint64_t count) {
  Samples samples = new_samples(count);
  kernels::Twister engine(random_seed());
  kernels::uniform_reals(engine, -1.0, 1.0, samples.span());
  return samples;
}

Samples ones(uint64_t count) {
  Samples samples = new_samples(count);
  kernels::constant(1.0, samples.span());
  return samples;
}

Samples zeros(uint64_t count) {
  Samples samples;
  samples.resize(count);
  return samples;
}

// The name of a capsule whose memory belongs to an Array.
constexpr const char* handed_over = "kvalo.handed_over";

// The block comes from malloc and goes with the Array's last holder, so the capsule must neither free it
// nor hand it over again: it loses its destructor, and its new name tells that it is spent.
Ref create_array(PyObject* capsule, PyObject* count_object) {
  if (!PyCapsule_CheckExact(capsule)) fail(PyExc_TypeError, "First argument must be a capsule");
  const uint64_t count = count_argument(count_object);
  const char* name = PyCapsule_GetName(capsule);
  check_python();
  if (name == handed_over) {
    fail(PyExc_ValueError, "The memory of this capsule belongs to a kvalo.Array already");
  }
  void* block = PyCapsule_GetPointer(capsule, name);
  if (block == nullptr) throw python_error();
  if (reinterpret_cast<uintptr_t>(block) % alignof(double) != 0) {
    fail(PyExc_ValueError, "The memory of this capsule is not aligned for numbers of double precision");
  }
  require_memory(static_cast<double>(count));
  if (PyCapsule_SetDestructor(capsule, nullptr) != 0 || PyCapsule_SetName(capsule, handed_over) != 0) {
    throw python_error();
  }
  Samples samples;
  samples.assign_move(count, static_cast<double*>(block));
  return make_array(std::move(samples));
}

}  // namespace

Rows array_rows() {
  static const PyMethodDef rows[] = {
      row<"create_array", "(capsule, count, /)", "OO",
          "Create new kvalo.Array from a capsule (containing a pointer to the data) and its number of "
          "elements. The new instance will retain the ownership of the pointer",
          create_array, Frame{.counted = "create_array"}>(),
      row<"create_array_random", "(count, /)", "O",
          "Create new kvalo.Array object with random values between -1.0 and 1.0", new_array<random_samples>,
          Frame{.counted = "create_array_random"}>(),
      row<"create_array_ones", "(count, /)", "O", "Create new kvalo.Array object with all values set to 1.0",
          new_array<ones>, Frame{.counted = "create_array_ones"}>(),
      row<"create_array_zeros", "(count, /)", "O", "Create new kvalo.Array object with all values set to 0.0",
          new_array<zeros>, Frame{.counted = "create_array_zeros"}>(),
  };
  return rows;
}

Rows generator_rows() {
  static const PyMethodDef rows[] = {
      row<"create_chirp", "(xmin=0.0, xmax=100.0, xdiff=0.01, freq_start=0.0, freq_end=10.0)", "|ddddd",
          "Create new kvalo.TimeSeries object with a chirp signal in the y-axis", create_chirp>(),
      row<"create_const", "(value=1.0, xmin=0.0, xmax=100.0, xdiff=0.01)", "|dddd",
          "Create new kvalo.TimeSeries object with a constant value in the y-axis", create_const>(),
      row<"create_ramp", "(rxmin, rxmax, ymin, ymax, xmin, xmax, xdiff)", "ddddddd",
          "Create new kvalo.TimeSeries object with a ramp signal in the y-axis", create_ramp>(),
      row<"create_random",
          "(dist='uniform', type='real', seed=..., ymin=0.0, ymax=1.0, xmin=0.0, xmax=100.0, xdiff=0.01)",
          "|ssIddddd", "Create new kvalo.TimeSeries object with a random values in the y-axis",
          create_random>(),
      row<"create_sine", "(freq=1.0, phase=0.0, amplitude=1.0, xmin=0.0, xmax=100.0, xdiff=0.01)", "|dddddd",
          "Create new kvalo.TimeSeries object with a sine wave in the y-axis", create_sine>(),
      row<"create_step", "(step=50.0, ymin=0.0, ymax=1.0, xmin=0.0, xmax=100.0, xdiff=0.01)", "|dddddd",
          "Create new kvalo.TimeSeries object with a step signal in the y-axis", create_step>(),
      row<"create_mesh_sinc", "(xmin=-10.0, xmax=10.0, xdiff=0.5, zmin=-10.0, zmax=10.0, zdiff=0.5)",
          "|dddddd", "Create new kvalo.Mesh object with the sinc function values in the y-axis",
          create_mesh_sinc>(),
  };
  return rows;
}

}  // namespace mirn2::fn
