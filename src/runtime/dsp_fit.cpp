// Least-squares fits: blocked QR of [1, T1(u), ..., Tn(u), v], with u and v the scaled x and y.
#include "runtime/dsp_fit.h"

#include <fmt/format.h>

#include <Eigen/Core>
#include <Eigen/QR>
#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include "runtime/exc.h"
#include "runtime/par.h"

namespace mirn3::dsp {

namespace {

constexpr size_t most_order = 9;
constexpr int most_columns = most_order + 2;  // powers 0 ... n, and the values
constexpr size_t block_rows = 256;            // a block stays in the first-level cache
constexpr size_t chunk_rows = 1 << 16;        // what one task reduces

using Triangle = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, 0, most_columns, most_columns>;
using Block =
    Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, 0, block_rows + most_columns, most_columns>;
using wide = long double;

// Maps lo ... hi onto -1 ... 1.
struct Scale {
  double centre = 0;
  double half = 0;

  Scale(double lo, double hi) : centre(lo / 2 + hi / 2), half(std::max(hi - centre, centre - lo)) {}
  double operator()(double value) const { return (value - centre) / half; }
};

struct Limits {
  double lo = std::numeric_limits<double>::infinity();
  double hi = -std::numeric_limits<double>::infinity();
};

// Least and greatest. Throws when a value is not finite.
Limits limits_of(std::span<const double> values, const char* what) {
  const size_t chunks = (values.size() + chunk_rows - 1) / chunk_rows;
  std::vector<Limits> found(chunks);
  par::run(chunks, [&](size_t chunk) {
    const size_t first = chunk * chunk_rows;
    const size_t last = std::min(first + chunk_rows, values.size());
    Limits limits;
    for (size_t i = first; i < last; ++i) {
      if (!std::isfinite(values[i])) {
        throw exc::error_t(
            fmt::format("The {:s} of sample {:d} is {:g}; a fit needs finite numbers: leave such samples out",
                        what, i, values[i]));
      }
      limits.lo = std::min(limits.lo, values[i]);
      limits.hi = std::max(limits.hi, values[i]);
    }
    found[chunk] = limits;
  });
  Limits all;
  for (const Limits& limits : found) all = {std::min(all.lo, limits.lo), std::max(all.hi, limits.hi)};
  return all;
}

// Reduces rows to an upper triangle that stands for all of them: R of the QR of R so far and a block.
class Reduction {
 public:
  explicit Reduction(int columns) : block_(Block::Zero(columns + static_cast<int>(block_rows), columns)) {}

  // The rows below the triangle, to be filled before reduce(rows).
  auto rows(size_t count) { return block_.middleRows(block_.cols(), static_cast<Eigen::Index>(count)); }

  void reduce(size_t count) {
    const Eigen::Index columns = block_.cols();
    Eigen::Ref<Block, 0, Eigen::OuterStride<>> used =
        block_.topRows(columns + static_cast<Eigen::Index>(count));
    const Eigen::HouseholderQR<Eigen::Ref<Block, 0, Eigen::OuterStride<>>> qr(used);
    for (Eigen::Index k = 0; k + 1 < columns; ++k) block_.col(k).segment(k + 1, columns - k - 1).setZero();
  }

  Triangle triangle() const { return block_.topRows(block_.cols()); }

 private:
  Block block_;
};

// The triangle of all rows [1, T1(u), ..., Tn(u), v]; value(y) is what is fitted.
template <typename Value>
Triangle reduced(const double* x, const double* y, size_t n, size_t order, const Scale& u, const Scale& v,
                 const Value& value) {
  const int columns = static_cast<int>(order) + 2;
  const auto power = static_cast<Eigen::Index>(order);
  const size_t chunks = (n + chunk_rows - 1) / chunk_rows;
  std::vector<Triangle> triangles(chunks);
  par::run(chunks, [&](size_t chunk) {
    Reduction reduction(columns);
    const size_t end = std::min((chunk + 1) * chunk_rows, n);
    for (size_t first = chunk * chunk_rows; first < end; first += block_rows) {
      const size_t count = std::min(block_rows, end - first);
      auto rows = reduction.rows(count);
      rows.col(0).setOnes();
      for (size_t i = 0; i < count; ++i) {
        const auto row = static_cast<Eigen::Index>(i);
        rows(row, 1) = u(x[first + i]);
        rows(row, power + 1) = v.half > 0 ? v(value(y[first + i])) : 0;
      }
      for (Eigen::Index k = 2; k <= power; ++k) {
        rows.col(k) = 2 * rows.col(1).cwiseProduct(rows.col(k - 1)) - rows.col(k - 2);
      }
      reduction.reduce(count);
    }
    triangles[chunk] = reduction.triangle();
  });

  Reduction all(columns);
  for (const Triangle& triangle : triangles) {
    all.rows(static_cast<size_t>(columns)) = triangle;
    all.reduce(static_cast<size_t>(columns));
  }
  return all.triangle();
}

// The sum of d[k] * Tk((X - centre) / half) as powers of X.
std::vector<wide> to_powers(const Eigen::VectorXd& d, const Scale& u) {
  const auto n = static_cast<size_t>(d.size());
  std::vector<wide> sum(n, 0);
  std::vector<wide> before(n, 0);
  std::vector<wide> current(n, 0);
  current[0] = 1;
  for (size_t k = 0; k < n; ++k) {
    for (size_t i = 0; i <= k; ++i) sum[i] += d[static_cast<Eigen::Index>(k)] * current[i];
    std::vector<wide> next(n, 0);
    for (size_t i = 0; i + 1 < n; ++i) next[i + 1] = (k == 0 ? 1 : 2) * current[i];
    for (size_t i = 0; i < n; ++i) next[i] -= before[i];
    before = current;
    current = next;
  }
  wide scale = 1;
  for (wide& coefficient : sum) {
    coefficient /= scale;
    scale *= u.half;
  }
  // Horner's scheme, repeated: the polynomial in X - centre becomes one in X.
  for (size_t i = 0; i + 1 < n; ++i) {
    for (size_t j = n - 1; j-- > i;) sum[j] -= u.centre * sum[j + 1];
  }
  return sum;
}

struct Powers {
  std::vector<wide> coefficients;
  double r;
};

template <typename Value>
Powers fit(const double* x, const double* y, size_t n, size_t order, Limits of_values, const Value& value) {
  const Limits of_stamps = limits_of({x, n}, "time stamp");
  const Scale u(of_stamps.lo, of_stamps.hi);
  if (!(u.half > 0)) throw exc::error_t("All time stamps are equal; a fit needs samples at different times");
  const Scale v(of_values.lo, of_values.hi);
  const Triangle triangle = reduced(x, y, n, order, u, v, value);

  const auto count = static_cast<Eigen::Index>(order) + 1;
  const auto r = triangle.topLeftCorner(count, count);
  const auto right = triangle.col(count).head(count);
  for (Eigen::Index k = 0; k < count; ++k) {
    // A column that the ones before it make up, but for rounding, cannot be told from them.
    if (!(std::abs(r(k, k)) > 1e-14 * static_cast<double>(count) * r.col(k).norm())) {
      throw exc::error_t(fmt::format(
          "The series has too few different time stamps for {:d} coefficients; choose a lower order or "
          "more samples",
          count));
    }
  }
  const Eigen::VectorXd d = r.triangularView<Eigen::Upper>().solve(right);

  Powers powers{to_powers(d, u), std::numeric_limits<double>::quiet_NaN()};
  for (wide& coefficient : powers.coefficients) coefficient *= v.half;
  powers.coefficients[0] += v.centre;
  if (v.half > 0) {
    // The first column is the constant, so what the others explain is the variation about the mean.
    const double explained = right.tail(count - 1).norm();
    powers.r = explained / std::hypot(explained, triangle(count, count));
  }
  return powers;
}

void check_count(size_t n, size_t coefficients) {
  if (n >= coefficients) return;
  throw exc::error_t(fmt::format(
      "Not enough samples for the fit: it has {:d} coefficients and needs at least as many samples, "
      "the series has {:d}",
      coefficients, n));
}

}  // namespace

fit_t fit_pol(const double* x, const double* y, size_t n, size_t order) {
  if (order < 1 || order > most_order) throw exc::error_t("The order of a fit must be between 1 and 9");
  check_count(n, order + 1);
  const Powers powers = fit(x, y, n, order, limits_of({y, n}, "value"), [](double value) { return value; });
  return {{powers.coefficients.begin(), powers.coefficients.end()}, powers.r};
}

fit_t fit_lin(const double* x, const double* y, size_t n) {
  fit_t line = fit_pol(x, y, n, 1);
  std::swap(line.coefficients[0], line.coefficients[1]);
  return line;
}

fit_t fit_exp(const double* x, const double* y, size_t n) {
  check_count(n, 2);
  const Limits values = limits_of({y, n}, "value");
  if (!(values.lo > 0)) {
    const auto sample = std::find_if(y, y + n, [](double value) { return !(value > 0); }) - y;
    throw exc::error_t(
        fmt::format("The value of sample {:d} is {:g}; an exponential fit needs values greater than zero: "
                    "select such samples or add an offset",
                    sample, y[sample]));
  }
  const Limits logarithms{std::log(values.lo), std::log(values.hi)};
  const Powers line = fit(x, y, n, 1, logarithms, [](double value) { return std::log(value); });
  const auto a = static_cast<double>(std::exp(line.coefficients[0]));
  const auto b = static_cast<double>(line.coefficients[1]);
  return {{a, b}, std::copysign(line.r, b)};
}

}  // namespace mirn3::dsp
