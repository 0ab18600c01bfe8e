// Applies functions of one or two numbers to whole vectors, with the instructions that the processor has.
#include "kernels/elements.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "runtime/machine.h"
#include "runtime/num_angle.h"
#include "runtime/num_merge.h"
#include "runtime/par.h"

// The loops exist once for any processor and, on x86-64, once more for those with AVX2. Neither contracts
// products and sums, so both give the same bits.
#if defined(__x86_64__)
#define KVALO_AVX2 [[gnu::target("avx2")]]
#else
#define KVALO_AVX2
#endif

namespace mirn2::kernels {

namespace {

// Elements that are worth a thread: cheap functions wait for memory, the others compute.
enum class Cost : size_t { low = size_t{1} << 17, high = size_t{1} << 13 };

#define KVALO_INLINE [[gnu::always_inline]] static inline

constexpr double pi = 3.141592653589793;

struct Add {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a + b; }
};
struct Subtract {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a - b; }
};
struct Multiply {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a * b; }
};
struct Remainder {
  static constexpr Cost cost = Cost::high;
  KVALO_INLINE double apply(double a, double b) { return std::fmod(std::fmod(a, b) + b, b); }
};
struct Divide {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a / b; }
};
struct Power {
  static constexpr Cost cost = Cost::high;
  KVALO_INLINE double apply(double a, double b) { return std::pow(a, b); }
};
struct Conjunction {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return ((a != 0.0) & (b != 0.0)) ? 1.0 : 0.0; }
};
struct Disjunction {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return ((a != 0.0) | (b != 0.0)) ? 1.0 : 0.0; }
};
struct Exclusive {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return (a != 0.0) != (b != 0.0) ? 1.0 : 0.0; }
};
struct Less {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a < b ? 1.0 : 0.0; }
};
struct LessEqual {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a <= b ? 1.0 : 0.0; }
};
struct Equal {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a == b ? 1.0 : 0.0; }
};
struct NotEqual {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a != b ? 1.0 : 0.0; }
};
struct Greater {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a > b ? 1.0 : 0.0; }
};
struct GreaterEqual {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a, double b) { return a >= b ? 1.0 : 0.0; }
};
struct DegreesApart {
  static constexpr Cost cost = Cost::high;
  KVALO_INLINE double apply(double a, double b) { return mirn3::num::deg_dist(a, b); }
};
struct RadiansApart {
  static constexpr Cost cost = Cost::high;
  KVALO_INLINE double apply(double a, double b) { return mirn3::num::rad_dist(a, b); }
};

struct Negative {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a) { return -a; }
};
struct Absolute {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a) { return std::fabs(a); }
};
struct Invert {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a) { return a == 0.0 ? 1.0 : 0.0; }
};
struct Ceiling {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a) { return __builtin_ceil(a); }
};
struct Floor {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a) { return __builtin_floor(a); }
};
struct Round {
  static constexpr Cost cost = Cost::low;
  // Adding the largest number below one half, with the sign of a, carries exactly the halves and what lies
  // beyond them to the next integer; numbers without a fraction are too large to be carried.
  KVALO_INLINE double apply(double a) {
    return __builtin_trunc(a + __builtin_copysign(0.49999999999999994, a));
  }
};
struct Truncate {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a) { return __builtin_trunc(a); }
};
struct SquareRoot {
  static constexpr Cost cost = Cost::low;
  KVALO_INLINE double apply(double a) { return std::sqrt(a); }
};

// A function of the C library, with what is done to its argument and to its result.
template <double (*function)(double)>
struct Library {
  static constexpr Cost cost = Cost::high;
  KVALO_INLINE double apply(double a) { return function(a); }
};
template <double (*function)(double)>
struct OfDegrees {
  static constexpr Cost cost = Cost::high;
  KVALO_INLINE double apply(double a) { return function(a * pi / 180.0); }
};
template <double (*function)(double)>
struct InDegrees {
  static constexpr Cost cost = Cost::high;
  KVALO_INLINE double apply(double a) { return function(a) * 180.0 / pi; }
};

// One loop for all shapes of operands: `at` gives the arguments of element i.
template <typename F, typename... At>
[[gnu::always_inline]] inline void run_loop(size_t first, size_t last, double* out, At... at) {
  for (size_t i = first; i < last; ++i) out[i] = F::apply(at(i)...);
}

// An operand that changes with the element, and one that does not.
struct Vector {
  const double* data;
  [[gnu::always_inline]] double operator()(size_t i) const { return data[i]; }
};
struct Number {
  double value;
  [[gnu::always_inline]] double operator()(size_t) const { return value; }
};

template <typename F, typename... At>
void plain(size_t first, size_t last, double* out, At... at) {
  run_loop<F>(first, last, out, at...);
}
template <typename F, typename... At>
KVALO_AVX2 void wide(size_t first, size_t last, double* out, At... at) {
  run_loop<F>(first, last, out, at...);
}

template <typename F, typename... At>
void on_all_cores(Results out, At... at) {
  const auto loop = mirn3::machine::has_avx2() ? wide<F, At...> : plain<F, At...>;
  mirn3::par::ranges(out.size(), static_cast<size_t>(F::cost),
                     [&](size_t first, size_t last) { loop(first, last, out.data(), at...); });
}

// ---- two series on their common time base ----

// Walks one series along ascending stamps. It has at least one sample.
class Cursor {
 public:
  Cursor(const Series& of, size_t at) : x_(of.x.data()), y_(of.y.data()), at_(at), last_(of.x.size() - 1) {}

  double operator()(double t) {
    while (at_ < last_ && t >= x_[at_ + 1]) ++at_;
    return y_[at_];
  }

 private:
  const double* x_;
  const double* y_;
  size_t at_;
  size_t last_;
};

// Where a cursor stands after t.
size_t position(Values x, double t) {
  const auto after = std::upper_bound(x.begin(), x.end(), t);
  return after == x.begin() ? 0 : static_cast<size_t>(after - x.begin()) - 1;
}

// A series that always has a sample: NaN where there was none.
Series with_value(const Series& series) {
  static constexpr double nothing = std::numeric_limits<double>::quiet_NaN();
  return series.x.empty() ? Series{Values(&nothing, 1), Values(&nothing, 1), true} : series;
}

template <typename F>
void held(const Series& first, const Series& second, Values t, Results out) {
  const Series a = with_value(first);
  const Series b = with_value(second);
  const auto walk = [&](size_t from, size_t to) {
    // A share in the middle begins where the cursors would be by then.
    Cursor at_a(a, from == 0 ? 0 : position(a.x, t[from - 1]));
    Cursor at_b(b, from == 0 ? 0 : position(b.x, t[from - 1]));
    for (size_t k = from; k < to; ++k) {
      const double value = at_a(t[k]);
      out[k] = F::apply(value, at_b(t[k]));
    }
  };
  if (a.is_ascending && b.is_ascending) {
    mirn3::par::ranges(out.size(), size_t{1} << 15, walk);
  } else {
    walk(0, out.size());
  }
}

// One share of a merge on its way: the next sample of each series, and where to write.
struct Merge {
  const double *ax, *ay, *bx, *by;
  size_t i, a_last;
  size_t j, b_last;
  double *t, *out;

  bool both_left() const { return i < a_last && j < b_last; }

  // One stamp. Which series has it is hard to predict, so nothing branches on it. A series that has not
  // begun shows its first value.
  template <typename F, bool both_begun>
  [[gnu::always_inline]] void step() {
    const double a = ax[i];
    const double b = bx[j];
    *t++ = b < a ? b : a;
    i += a <= b ? 1 : 0;
    j += b <= a ? 1 : 0;
    *out++ = both_begun ? F::apply(ay[i - 1], by[j - 1]) : F::apply(ay[i - (i > 0)], by[j - (j > 0)]);
  }

  // Goes on until both series have begun.
  template <typename F>
  void begin() {
    while (both_left() && (i == 0 || j == 0)) step<F, false>();
  }

  template <typename F>
  void finish() {
    begin<F>();
    while (both_left()) step<F, true>();
    const double a_held = ay[i - (i > 0)];
    const double b_held = by[j - (j > 0)];
    for (; i < a_last; ++i, ++t, ++out) {
      *t = ax[i];
      *out = F::apply(ay[i], b_held);
    }
    for (; j < b_last; ++j, ++t, ++out) {
      *t = bx[j];
      *out = F::apply(a_held, by[j]);
    }
  }
};

// Each stamp waits for the comparison of the one before; two shares at a time fill the waiting.
template <typename F>
void merge_two(Merge& p, Merge& q) {
  Merge m = p;
  Merge n = q;
  m.begin<F>();
  n.begin<F>();
  while (m.both_left() && n.both_left()) {
    m.step<F, true>();
    n.step<F, true>();
  }
  m.template finish<F>();
  n.template finish<F>();
  p = m;
  q = n;
}

template <typename F>
size_t merged(const Series& first, const Series& second, Results t, Results out) {
  const Series a = with_value(first);
  const Series b = with_value(second);
  // More of them than threads, which may be held up by others.
  const auto shares = mirn3::num::merge_shares(first.x, second.x, 8 * mirn3::par::workers());
  std::vector<Merge> merges;
  for (const auto& [a_first, a_last, b_first, b_last] : shares) {
    const size_t at = a_first + b_first;
    merges.push_back({a.x.data(), a.y.data(), b.x.data(), b.y.data(), a_first, a_last, b_first, b_last,
                      t.data() + at, out.data() + at});
  }
  mirn3::par::run((merges.size() + 1) / 2, [&](size_t k) {
    if (2 * k + 1 == merges.size()) {
      merges[2 * k].finish<F>();
    } else {
      merge_two<F>(merges[2 * k], merges[2 * k + 1]);
    }
  });
  // Stamps that both have leave gaps between the shares.
  size_t size = 0;
  for (size_t k = 0; k < shares.size(); ++k) {
    const size_t begin = shares[k].first1 + shares[k].first2;
    const auto count = static_cast<size_t>(merges[k].t - (t.data() + begin));
    if (begin != size) {
      std::memmove(t.data() + size, t.data() + begin, count * sizeof(double));
      std::memmove(out.data() + size, out.data() + begin, count * sizeof(double));
    }
    size += count;
  }
  return size;
}

// ---- tables ----

template <typename F>
constexpr Binary row(const char* symbol) {
  return {.symbol = symbol,
          .vectors = [](Values a, Values b,
                        Results out) { on_all_cores<F>(out, Vector{a.data()}, Vector{b.data()}); },
          .vector_number = [](Values a, double b,
                              Results out) { on_all_cores<F>(out, Vector{a.data()}, Number{b}); },
          .number_vector = [](double a, Values b,
                              Results out) { on_all_cores<F>(out, Number{a}, Vector{b.data()}); },
          .held = held<F>,
          .merged = merged<F>};
}

constexpr Binary binary_table[] = {
    row<Add>("+"),
    row<Subtract>("-"),
    row<Multiply>("*"),
    row<Remainder>("%"),
    row<Divide>("/"),
    row<Power>("math.pow"),
    row<Conjunction>("and"),
    row<Disjunction>("or"),
    row<Exclusive>("^"),
    row<Less>("<"),
    row<LessEqual>("<="),
    row<Equal>("=="),
    row<NotEqual>("!="),
    row<Greater>(">"),
    row<GreaterEqual>(">="),
    row<DegreesApart>("kvalo.angular_distance"),
    row<RadiansApart>("kvalo.angular_distance"),
};
static_assert(std::size(binary_table) == static_cast<size_t>(Operator::count));

template <typename F>
constexpr Unary function_row(const char* label) {
  return {.label = label, .vector = [](Values a, Results out) { on_all_cores<F>(out, Vector{a.data()}); }};
}

constexpr Unary unary_table[] = {
    function_row<Negative>("-"),
    function_row<Absolute>("math.abs"),
    function_row<Invert>("~"),
    function_row<Library<std::cos>>("kvalo.cos"),
    function_row<Library<std::sin>>("kvalo.sin"),
    function_row<Library<std::tan>>("kvalo.tan"),
    function_row<OfDegrees<std::cos>>("kvalo.cosd"),
    function_row<OfDegrees<std::sin>>("kvalo.sind"),
    function_row<OfDegrees<std::tan>>("kvalo.tand"),
    function_row<Library<std::acos>>("kvalo.acos"),
    function_row<Library<std::asin>>("kvalo.asin"),
    function_row<Library<std::atan>>("kvalo.atan"),
    function_row<InDegrees<std::acos>>("kvalo.acosd"),
    function_row<InDegrees<std::asin>>("kvalo.asind"),
    function_row<InDegrees<std::atan>>("kvalo.atand"),
    function_row<Ceiling>("kvalo.ceil"),
    function_row<Floor>("kvalo.floor"),
    function_row<Round>("kvalo.round"),
    function_row<Truncate>("kvalo.trunc"),
    function_row<Library<std::exp>>("kvalo.exp"),
    function_row<SquareRoot>("kvalo.sqrt"),
    function_row<Library<std::log>>("kvalo.log"),
    function_row<Library<std::log10>>("kvalo.log10"),
};
static_assert(std::size(unary_table) == static_cast<size_t>(Function::count));

}  // namespace

const Binary& binary(Operator which) noexcept { return binary_table[static_cast<size_t>(which)]; }
const Unary& unary(Function which) noexcept { return unary_table[static_cast<size_t>(which)]; }

}  // namespace mirn2::kernels
