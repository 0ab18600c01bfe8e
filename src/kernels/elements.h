// Functions of one or two numbers, applied to whole vectors: what operators, comparisons and elementary
// functions are made of.
//
// A family is a table of rows; a row is found by its enumerator. Every kernel takes any number of
// elements, none included, and follows IEEE arithmetic: nothing raises, a fault gives infinity or NaN.
// Long vectors are worked on by all cores; the result does not depend on how many there are.
#pragma once

#include <cstddef>
#include <span>

namespace mirn2::kernels {

using Values = std::span<const double>;
using Results = std::span<double>;

// A series is held: its value at t is that of its last sample at or before t, and its first value before
// its first sample. Without samples it is NaN everywhere.
struct Series {
  Values x, y;        // equal sizes
  bool is_ascending;  // x never decreases; otherwise a cursor that never moves back decides
};

// A function of two numbers. `symbol` stands between the operands in a creation script.
struct Binary {
  const char* symbol;
  void (*vectors)(Values a, Values b, Results out);        // out[i] = f(a[i], b[i]); equal sizes
  void (*vector_number)(Values a, double b, Results out);  // out[i] = f(a[i], b)
  void (*number_vector)(double a, Values b, Results out);  // out[i] = f(a, b[i])
  // Both series held at ascending stamps t, which have every stamp of both: out[k] = f(a at t[k], b at t[k]).
  void (*held)(const Series& a, const Series& b, Values t, Results out);
  // The same with the stamps made on the way, for series whose own stamps are strictly ascending. t and out
  // have room for the samples of both; returns how many there are, a stamp that both have counted once.
  size_t (*merged)(const Series& a, const Series& b, Results t, Results out);
};

enum class Operator {
  add,
  subtract,
  multiply,
  remainder,  // fmod(fmod(a, b) + b, b): has the sign of b
  divide,
  power,
  conjunction,  // logic: zero is false, all else (NaN too) is true; 0.0 or 1.0
  disjunction,
  exclusive,
  less,  // comparisons: 1.0 where it holds; with a NaN only not_equal does
  less_equal,
  equal,
  not_equal,
  greater,
  greater_equal,
  degrees_apart,  // mirn3::num::deg_dist and rad_dist
  radians_apart,
  count
};

const Binary& binary(Operator which) noexcept;

// A function of one number. `label` stands before the operand in a creation script.
struct Unary {
  const char* label;
  void (*vector)(Values a, Results out);  // out[i] = f(a[i]); in place is allowed
};

enum class Function {
  negative,
  absolute,
  invert,  // 1.0 where a is zero, else 0.0
  cosine,
  sine,
  tangent,
  cosine_degrees,  // cos(x * pi / 180), in this order
  sine_degrees,
  tangent_degrees,
  arc_cosine,
  arc_sine,
  arc_tangent,
  arc_cosine_degrees,  // acos(x) * 180 / pi, in this order
  arc_sine_degrees,
  arc_tangent_degrees,
  ceiling,
  floor,
  round,  // halves away from zero
  truncate,
  exponential,
  square_root,
  logarithm,
  logarithm_10,
  count
};

const Unary& unary(Function which) noexcept;

}  // namespace mirn2::kernels
