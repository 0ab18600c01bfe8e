// The operations that blocks become: one row each, with its text in the generated C and Python.
//
// A row: name, whether its output depends on the inputs of the same sample, text in C, text in Python ("" for
// the same). In a text, $u1 ... are the inputs, $u all of them (between << and >>, joined by what follows ||;
// <<2: starts at the second), $p0 ... parameters, $i0 ... parameters as whole numbers, $x the stored numbers,
// $t0 ... tables and $n0 ... their sizes in C, $k the number of the sample and $time its time, $in the value
// that the caller gives, $name the block's name as a text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace plexo {

// clang-format off
#define PLEXO_OPS(X) \
  /* sources */ \
  X(constant, false, "$p0", "") \
  X(external, false, "$in", "") \
  X(step, false, "$k < $p0 ? $p1 : $p2", "$p1 if $k < $p0 else $p2") \
  X(ramp, false, "$k < $p0 ? $p1 : $p1 + $p2 * (($k - $p0) * $p3)", "$p1 if $k < $p0 else $p1 + $p2 * (($k - $p0) * $p3)") \
  X(sine, false, "$p0 * sin(opaque($p1 * $time + $p2)) + $p3", "$p0 * within_domain(math.sin, $p1 * $time + $p2) + $p3") \
  X(sweep, false, "$p0 * sin(opaque(6.283185307179586 * (($p1 + $p2 * ($k * $p3)) * ($k * $p3))))", "$p0 * within_domain(math.sin, 6.283185307179586 * (($p1 + $p2 * ($k * $p3)) * ($k * $p3)))") \
  X(pulse, false, "pulse($k, $p0, $p1, $p2, $p3, $p4)", "") \
  X(random, false, "$p0 + $p1 * uniform($x)", "") \
  X(clock, false, "$time", "") \
  X(series_hold, false, "series_hold($time, $t0, $t1, $n0, $p0, $x)", "series_hold($time, $t0, $t1, $p0, $x)") \
  X(series_line, false, "series_line($time, $t0, $t1, $n0, $p0, $x)", "series_line($time, $t0, $t1, $p0, $x)") \
  /* arithmetic; sum and product are written by their signs */ \
  X(copy, true, "$u1", "") \
  X(gain, true, "$p0 * $u1", "") \
  X(linear, true, "$p0 * $u1 + $p1", "") \
  X(add, true, "$u1 + $u2", "") \
  X(subtract, true, "$u1 - $u2", "") \
  X(sum, true, "", "") \
  X(multiply, true, "$u1 * $u2", "") \
  X(product, true, "", "") \
  X(absolute, true, "fabs($u1)", "abs($u1)") \
  X(negate, true, "-$u1", "") \
  X(sign, true, "sign($u1)", "") \
  X(square, true, "$u1 * $u1", "") \
  X(root, true, "sqrt($u1)", "root($u1)") \
  X(exponential, true, "exp(opaque($u1))", "exponential($u1)") \
  X(logarithm, true, "log(opaque($u1))", "logarithm(math.log, $u1)") \
  X(logarithm10, true, "log10(opaque($u1))", "logarithm(math.log10, $u1)") \
  X(sin, true, "sin(opaque($u1))", "within_domain(math.sin, $u1)") \
  X(cos, true, "cos(opaque($u1))", "within_domain(math.cos, $u1)") \
  X(tan, true, "tan(opaque($u1))", "within_domain(math.tan, $u1)") \
  X(asin, true, "asin(opaque($u1))", "within_domain(math.asin, $u1)") \
  X(acos, true, "acos(opaque($u1))", "within_domain(math.acos, $u1)") \
  X(atan, true, "atan(opaque($u1))", "math.atan($u1)") \
  X(floor, true, "floor($u1)", "") \
  X(ceil, true, "ceil($u1)", "") \
  X(trunc, true, "trunc($u1)", "") \
  X(round, true, "round($u1)", "nearest($u1)") \
  X(atan2, true, "atan2(opaque($u1), opaque($u2))", "math.atan2($u1, $u2)") \
  X(power, true, "pow(opaque($u1), opaque($u2))", "power($u1, $u2)") \
  X(modulo, true, "modulo($u1, $u2)", "") \
  X(hypot, true, "sqrt($u1 * $u1 + $u2 * $u2)", "root($u1 * $u1 + $u2 * $u2)") \
  X(smallest, true, "smallest((const double[]){<<$u||, >>}, $count)", "smallest([<<$u||, >>])") \
  X(largest, true, "largest((const double[]){<<$u||, >>}, $count)", "largest([<<$u||, >>])") \
  /* comparison and logic */ \
  X(equal, true, "$u1 == $u2 ? 1.0 : 0.0", "1.0 if $u1 == $u2 else 0.0") \
  X(not_equal, true, "$u1 != $u2 ? 1.0 : 0.0", "1.0 if $u1 != $u2 else 0.0") \
  X(less, true, "$u1 < $u2 ? 1.0 : 0.0", "1.0 if $u1 < $u2 else 0.0") \
  X(less_equal, true, "$u1 <= $u2 ? 1.0 : 0.0", "1.0 if $u1 <= $u2 else 0.0") \
  X(greater, true, "$u1 > $u2 ? 1.0 : 0.0", "1.0 if $u1 > $u2 else 0.0") \
  X(greater_equal, true, "$u1 >= $u2 ? 1.0 : 0.0", "1.0 if $u1 >= $u2 else 0.0") \
  X(equal_to, true, "$u1 == $p0 ? 1.0 : 0.0", "1.0 if $u1 == $p0 else 0.0") \
  X(not_equal_to, true, "$u1 != $p0 ? 1.0 : 0.0", "1.0 if $u1 != $p0 else 0.0") \
  X(less_than, true, "$u1 < $p0 ? 1.0 : 0.0", "1.0 if $u1 < $p0 else 0.0") \
  X(at_most, true, "$u1 <= $p0 ? 1.0 : 0.0", "1.0 if $u1 <= $p0 else 0.0") \
  X(greater_than, true, "$u1 > $p0 ? 1.0 : 0.0", "1.0 if $u1 > $p0 else 0.0") \
  X(at_least, true, "$u1 >= $p0 ? 1.0 : 0.0", "1.0 if $u1 >= $p0 else 0.0") \
  X(within, true, "!($p0 > $u1 || $u1 > $p1) ? 1.0 : 0.0", "1.0 if not ($p0 > $u1 or $u1 > $p1) else 0.0") \
  X(all_of, true, "<<$u != 0.0|| && >> ? 1.0 : 0.0", "1.0 if <<$u|| and >> else 0.0") \
  X(any_of, true, "<<$u != 0.0|| || >> ? 1.0 : 0.0", "1.0 if <<$u|| or >> else 0.0") \
  X(odd_of, true, "(<<($u != 0.0)|| ^ >>) != 0 ? 1.0 : 0.0", "1.0 if <<bool($u)|| ^ >> else 0.0") \
  X(not_all_of, true, "<<$u != 0.0|| && >> ? 0.0 : 1.0", "0.0 if <<$u|| and >> else 1.0") \
  X(none_of, true, "<<$u != 0.0|| || >> ? 0.0 : 1.0", "0.0 if <<$u|| or >> else 1.0") \
  X(bits_and, true, "bits_and($u1, $u2)", "") \
  X(bits_or, true, "bits_or($u1, $u2)", "") \
  X(bits_xor, true, "bits_xor($u1, $u2)", "") \
  X(shift_left, true, "shift_left($u1, $u2)", "") \
  X(shift_right, true, "shift_right($u1, $u2)", "") \
  X(bits_not, true, "bits_not($u1)", "") \
  X(switched, true, "$u2 >= $p0 ? $u1 : $u3", "$u1 if $u2 >= $p0 else $u3") \
  X(pick, true, "pick($u1, (const double[]){<<2:$u||, >>}, $others)", "pick($u1, [<<2:$u||, >>])") \
  /* words and number types */ \
  X(to_single, true, "to_single($u1)", "") \
  X(truth, true, "truth($u1)", "") \
  X(to_whole, true, "to_whole($u1, $p0, $p1)", "") \
  X(field_unsigned, true, "field_unsigned($u1, $i0, $i1, $p2, $p3)", "") \
  X(field_signed, true, "field_signed($u1, $i0, $i1, $p2, $p3)", "") \
  X(field_complement, true, "field_complement($u1, $i0, $i1, $p2, $p3)", "") \
  X(field_decimal, true, "field_decimal($u1, $i0, $i1, $p2, $p3)", "") \
  X(bits, true, "bit_of($u1, $bit)", "") \
  /* memory */ \
  X(edge_rising, true, "edge_rising($u1, $x)", "") \
  X(edge_falling, true, "edge_falling($u1, $x)", "") \
  X(edge_either, true, "edge_either($u1, $x)", "") \
  X(latch, true, "latch($u1, $u2, $x)", "") \
  X(count_edges, true, "count_edges($u1, $u2, $p0, $p1, $p2, $p3, $x)", "") \
  X(debounce, true, "debounce($u1, $k, $p0, $p1, $x)", "") \
  X(relay, true, "relay($u1, $p0, $p1, $p2, $p3, $x)", "") \
  X(hold, true, "hold($u1, $u2, $x)", "") \
  X(hold_every, true, "hold_every($u1, $k, $p0, $x)", "") \
  X(delay, false, "delay_read($x)", "") \
  /* limits and tables */ \
  X(clip, true, "clip($u1, $p0, $p1)", "") \
  X(dead_zone, true, "dead_zone($u1, $p0, $p1)", "") \
  X(rate_limit, true, "rate_limit($u1, $p0, $p1, $x)", "") \
  X(quantize, true, "quantize($u1, $p0)", "") \
  X(lookup_clip, true, "lookup_clip($u1, $t0, $t1, $n0)", "lookup_clip($u1, $t0, $t1)") \
  X(lookup_extend, true, "lookup_extend($u1, $t0, $t1, $n0)", "lookup_extend($u1, $t0, $t1)") \
  X(lookup2_clip, true, "lookup2_clip($u1, $u2, $t0, $t1, $t2, $n0, $n1)", "lookup2_clip($u1, $u2, $t0, $t1, $t2)") \
  X(lookup2_extend, true, "lookup2_extend($u1, $u2, $t0, $t1, $t2, $n0, $n1)", "lookup2_extend($u1, $u2, $t0, $t1, $t2)") \
  /* dynamics */ \
  X(stored, false, "$x[0]", "") \
  X(integrate_backward, true, "integrate_backward($u1, $p0, $p1, $p2, $x)", "") \
  X(integrate_trapezoidal, true, "integrate_trapezoidal($u1, $k, $p0, $p1, $p2, $x)", "") \
  X(derivative, true, "derivative($u1, $k, $p0, $p1, $p2, $x)", "") \
  X(low_pass, true, "low_pass($u1, $k, $p0, $p1, $x)", "") \
  X(high_pass, true, "high_pass($u1, $k, $p0, $x)", "") \
  X(first_order, true, "first_order($u1, $p0, $p1, $x)", "") \
  X(pid, true, "pid($u1, $k, $p0, $p1, $p2, $p3, $p4, $p5, $x)", "") \
  /* ends of a run */ \
  X(require, true, "if ($u1 == 0.0) return 1", "if $u1 == 0.0: raise AssertionError($name)") \
  X(stop, true, "if ($u1 != 0.0) result = 2", "if $u1 != 0.0: self.stopped = True") \
  /* what follows the outputs of a sample */ \
  X(delay_next, true, "delay_write($u1, $p0, $x)", "") \
  X(integral_next, true, "$x[0] = clip($x[0] + $p0 * $u1, $p1, $p2)", "") \
  X(lag_next, true, "$x[0] = $p0 * $x[0] + $p1 * $u1", "") \
  /* marks in a schedule */ \
  X(end_of_outputs, false, "", "") \
  X(end_of_sample, false, "", "")
// clang-format on

enum class Op : uint16_t {
#define PLEXO_OP(name, reads_now, c, python) name,
  PLEXO_OPS(PLEXO_OP)
#undef PLEXO_OP
};

struct OpRow {
  bool reads_now;
  std::string_view c;
  std::string_view python;
};

inline constexpr OpRow op_rows[] = {
#define PLEXO_OP(name, reads_now, c, python) {reads_now, c, std::string_view(python).empty() ? c : python},
    PLEXO_OPS(PLEXO_OP)
#undef PLEXO_OP
};

constexpr const OpRow& row_of(Op op) { return op_rows[static_cast<size_t>(op)]; }

}  // namespace plexo
