// Script functions that make signals, surfaces and arrays.
#include "functions/generators.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include "kernels/generators.h"
#include "kernels/random.h"
#include "objects/frame.h"
#include "objects/mesh.h"
#include "objects/time_series.h"
#include "runtime/entropy.h"
#include "runtime/machine.h"
#include "runtime/mem.h"
#include "runtime/str.h"

namespace mirn2::fn {

namespace {

// ---- arguments ----

template <typename... Values>
void parse(PyObject* args, PyObject* keywords, const char* format, const char* const* names,
           Values*... values) {
  if (!PyArg_ParseTupleAndKeywords(args, keywords, format, const_cast<char**>(names), values...)) {
    throw python_error();
  }
}

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

// The regular time base that every series here is made on.
struct TimeBase {
  double xmin = 0.0;
  double xmax = 100.0;
  double xdiff = 0.01;

  void check() const {
    if (xdiff <= 0) fail(PyExc_ValueError, "Time step (xdiff) value must be positive");
    if (xmin >= xmax) {
      fail(PyExc_ValueError, "Final time value must be greater than the initial time value");
    }
    if (!std::isfinite(xmin) || !std::isfinite(xmax) || !std::isfinite(xdiff)) {
      fail(PyExc_ValueError, "Time values (xmin, xmax, xdiff) must be finite numbers");
    }
  }
  uint64_t count() const { return kernels::regular_count(xmin, xmax, xdiff); }
};

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

}  // namespace

// ---- signals ----

PyObject* create_const(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    static const char* names[] = {"value", "xmin", "xmax", "xdiff", nullptr};
    double value = 1.0;
    TimeBase base;
    parse(args, keywords, "|dddd", names, &value, &base.xmin, &base.xmax, &base.xdiff);
    base.check();
    return series_on(base, [&](auto, auto y) { kernels::constant(value, y); }).release();
  });
}

PyObject* create_ramp(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    static const char* names[] = {"rxmin", "rxmax", "ymin", "ymax", "xmin", "xmax", "xdiff", nullptr};
    kernels::Ramp ramp{};
    TimeBase base;
    parse(args, keywords, "ddddddd", names, &ramp.first, &ramp.last, &ramp.ymin, &ramp.ymax, &base.xmin,
          &base.xmax, &base.xdiff);
    base.check();
    if (!(ramp.first < ramp.last)) {
      fail(PyExc_ValueError, "Final ramp time value must be greater than the initial time value");
    }
    Ref result = series_on(base, [&](auto x, auto y) { kernels::ramp(x, ramp, y); });
    set_script(as_series(result.get()),
               fmt::format("kvalo.create_ramp(rxmin={:g}, rxmax={:g}, ymin={:g}, ymax={:g}, xmin={:g}, "
                           "xmax={:g}, xdiff={:g})",
                           ramp.first, ramp.last, ramp.ymin, ramp.ymax, base.xmin, base.xmax, base.xdiff));
    return result.release();
  });
}

PyObject* create_step(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    static const char* names[] = {"step", "ymin", "ymax", "xmin", "xmax", "xdiff", nullptr};
    double edge = 50.0;
    double ymin = 0.0;
    double ymax = 1.0;
    TimeBase base;
    parse(args, keywords, "|dddddd", names, &edge, &ymin, &ymax, &base.xmin, &base.xmax, &base.xdiff);
    base.check();
    return series_on(base, [&](auto, auto y) { kernels::step(edge, ymin, ymax, base.xdiff, y); }).release();
  });
}

PyObject* create_sine(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    static const char* names[] = {"freq", "phase", "amplitude", "xmin", "xmax", "xdiff", nullptr};
    kernels::Sine sine{.freq = 1.0, .phase = 0.0, .amplitude = 1.0};
    TimeBase base;
    parse(args, keywords, "|dddddd", names, &sine.freq, &sine.phase, &sine.amplitude, &base.xmin, &base.xmax,
          &base.xdiff);
    base.check();
    return series_on(base, [&](auto, auto y) { kernels::sine(sine, base.xdiff, y); }).release();
  });
}

PyObject* create_chirp(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    static const char* names[] = {"xmin", "xmax", "xdiff", "freq_start", "freq_end", nullptr};
    TimeBase base;
    double freq_start = 0.0;
    double freq_end = 10.0;
    parse(args, keywords, "|ddddd", names, &base.xmin, &base.xmax, &base.xdiff, &freq_start, &freq_end);
    if (freq_start < 0 || freq_end < 0) fail(PyExc_ValueError, "Frequency value must be positive");
    base.check();
    return series_on(base, [&](auto t, auto y) { kernels::chirp(t, freq_start, freq_end, y); }).release();
  });
}

// ---- random numbers ----

namespace {

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

}  // namespace

PyObject* create_random(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    static const char* names[] = {"dist", "type", "seed", "ymin", "ymax", "xmin", "xmax", "xdiff", nullptr};
    const char* dist = "uniform";
    const char* type = "real";
    unsigned int seed = random_seed();
    double ymin = 0.0;
    double ymax = 1.0;
    TimeBase base;
    parse(args, keywords, "|ssIddddd", names, &dist, &type, &seed, &ymin, &ymax, &base.xmin, &base.xmax,
          &base.xdiff);
    base.check();
    const Values values{mirn3::str::to_lower(dist) == "normal", mirn3::str::to_lower(type) == "int", ymin,
                        ymax};
    values.check();
    kernels::Twister engine(seed);
    return series_on(base, [&](auto, auto y) { values.draw(engine, y); }).release();
  });
}

// ---- a surface ----

namespace {

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

}  // namespace

PyObject* create_mesh_sinc(PyObject*, PyObject* args, PyObject* keywords) {
  return guard(PyExc_ValueError, [&] {
    static const char* names[] = {"xmin", "xmax", "xdiff", "zmin", "zmax", "zdiff", nullptr};
    TimeBase x_base{-10.0, 10.0, 0.5};
    TimeBase z_base{-10.0, 10.0, 0.5};
    parse(args, keywords, "|dddddd", names, &x_base.xmin, &x_base.xmax, &x_base.xdiff, &z_base.xmin,
          &z_base.xmax, &z_base.xdiff);
    check_axis(x_base, "x");
    check_axis(z_base, "z");
    const auto columns = static_cast<double>(x_base.count());
    const auto rows = static_cast<double>(z_base.count());
    require_memory(columns * rows + columns + rows);
    Samples x = new_samples(x_base.count());
    Samples z = new_samples(z_base.count());
    Samples values = new_samples(x.size() * z.size());
    without_gil([&] {
      kernels::regular_axis(x_base.xmin, x_base.xdiff, x.span());
      kernels::regular_axis(z_base.xmin, z_base.xdiff, z.span());
      kernels::sinc(x.span(), z.span(), values.span());
    });
    return make_mesh(std::move(x), std::move(values), std::move(z)).release();
  });
}

// ---- arrays ----

namespace {

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

// make(count) returns the samples; it is called without the interpreter lock.
template <typename Make>
PyObject* new_array(PyObject* args, const char* name, const Make& make) {
  return guard(PyExc_ValueError, [&] {
    require_count(args, 1, name);
    const uint64_t count = count_argument(PyTuple_GET_ITEM(args, 0));
    require_memory(static_cast<double>(count));
    return make_array(without_gil([&] { return make(count); })).release();
  });
}

// The name of a capsule whose memory belongs to an Array.
constexpr const char* handed_over = "kvalo.handed_over";

}  // namespace

// The block comes from malloc and goes with the Array's last holder, so the capsule must neither free it
// nor hand it over again: it loses its destructor, and its new name tells that it is spent.
PyObject* create_array(PyObject*, PyObject* args) {
  return guard(PyExc_ValueError, [&] {
    require_count(args, 2, "create_array");
    PyObject* capsule = PyTuple_GET_ITEM(args, 0);
    if (!PyCapsule_CheckExact(capsule)) fail(PyExc_TypeError, "First argument must be a capsule");
    const uint64_t count = count_argument(PyTuple_GET_ITEM(args, 1));
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
    return make_array(std::move(samples)).release();
  });
}

PyObject* create_array_random(PyObject*, PyObject* args) {
  return new_array(args, "create_array_random", [](uint64_t count) {
    Samples samples = new_samples(count);
    kernels::Twister engine(random_seed());
    kernels::uniform_reals(engine, -1.0, 1.0, samples.span());
    return samples;
  });
}

PyObject* create_array_ones(PyObject*, PyObject* args) {
  return new_array(args, "create_array_ones", [](uint64_t count) {
    Samples samples = new_samples(count);
    kernels::constant(1.0, samples.span());
    return samples;
  });
}

PyObject* create_array_zeros(PyObject*, PyObject* args) {
  return new_array(args, "create_array_zeros", [](uint64_t count) {
    Samples samples;
    samples.resize(count);
    return samples;
  });
}

}  // namespace mirn2::fn
