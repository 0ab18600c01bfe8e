// Transfer and correlation, over ducc0's complex transform.
#include "view/pairs.h"

#define DUCC0_CUSTOM_LOWLEVEL_THREADING
#include <ducc0/fft/fft1d_impl.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

#include "runtime/exc.h"

// The library asks for a parallel loop; the transforms here are short, so one thread does.
namespace ducc0::detail_threading {

namespace {
class Whole final : public Scheduler {
 public:
  explicit Whole(size_t n) : range_(0, n) {}
  size_t num_threads() const override { return 1; }
  size_t thread_num() const override { return 0; }
  Range getNext() override { return std::exchange(range_, Range()); }

 private:
  Range range_;
};
}  // namespace

void execStatic(size_t nwork, size_t, size_t, std::function<void(Scheduler&)> work) {
  Whole whole(nwork);
  work(whole);
}

}  // namespace ducc0::detail_threading

namespace kvalo_view {

namespace {

using mirn3::exc::error_t;
using Complex = std::complex<double>;
using Cell = ducc0::Cmplx<double>;

// Complex transforms of one length, of two real series at once.
class Transform {
 public:
  explicit Transform(size_t n) : n_(n), plan_(n), values_(n), scratch_(plan_.bufsize()) {}

  void set(size_t i, double re, double im) { values_[i].Set(re, im); }
  void run(bool forward) {
    Cell* result = plan_.exec(values_.data(), scratch_.data(), 1.0, forward, 1);
    if (result != values_.data()) std::copy_n(result, n_, values_.data());
  }
  Complex at(size_t k) const { return {values_[k].r, values_[k].i}; }
  // The transforms of the real and of the imaginary series.
  Complex real_part(size_t k) const { return (at(k) + std::conj(at((n_ - k) % n_))) / 2.0; }
  Complex imaginary_part(size_t k) const { return (at(k) - std::conj(at((n_ - k) % n_))) / Complex(0, 2); }

 private:
  size_t n_;
  ducc0::detail_fft::pocketfft_c<double> plan_;
  std::vector<Cell> values_, scratch_;
};

bool all_finite(std::span<const double> values) {
  return std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
}

struct Moments {
  double mean = 0;
  double deviation = 0;  // from the mean: root of the sum of squares
};
Moments moments_of(std::span<const double> values) {
  double sum = 0, squares = 0;
  size_t n = 0;
  for (const double v : values) {
    if (!std::isfinite(v)) continue;
    sum += v;
    ++n;
  }
  Moments result{n == 0 ? 0 : sum / static_cast<double>(n), 0};
  for (const double v : values) squares += std::isfinite(v) ? (v - result.mean) * (v - result.mean) : 0;
  result.deviation = std::sqrt(squares);
  return result;
}

}  // namespace

Transfer transfer_of(std::span<const double> input, std::span<const double> output, double period) {
  constexpr size_t shortest = 16, longest = size_t{1} << 16;
  const size_t n = input.size();
  if (n < shortest) throw error_t("A Bode diagram needs at least 16 samples; choose a longer range");
  const size_t length = std::clamp(std::bit_floor(n / 4), shortest, longest);
  const size_t lines = length / 2;

  std::vector<double> sxx(lines), syy(lines);
  std::vector<Complex> sxy(lines);
  Transform transform(length);
  size_t pieces = 0;
  for (size_t at = 0; at + length <= n; at += length / 2) {
    const auto x = input.subspan(at, length), y = output.subspan(at, length);
    if (!all_finite(x) || !all_finite(y)) continue;
    ++pieces;
    const double mean_x = moments_of(x).mean, mean_y = moments_of(y).mean;
    for (size_t i = 0; i < length; ++i) {
      const double angle = 2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(length);
      const double window = 0.5 - 0.5 * std::cos(angle);
      transform.set(i, (x[i] - mean_x) * window, (y[i] - mean_y) * window);
    }
    transform.run(true);
    for (size_t k = 1; k <= lines; ++k) {
      const Complex fx = transform.real_part(k), fy = transform.imaginary_part(k);
      sxx[k - 1] += std::norm(fx);
      syy[k - 1] += std::norm(fy);
      sxy[k - 1] += std::conj(fx) * fy;
    }
  }
  if (pieces == 0) {
    throw error_t("Every piece of the range holds values that are not finite; choose another range");
  }
  Transfer result;
  for (size_t k = 0; k < lines; ++k) {
    const Complex h = sxy[k] / sxx[k];
    result.frequencies.push_back(static_cast<double>(k + 1) / (static_cast<double>(length) * period));
    result.gain.push_back(20 * std::log10(std::abs(h)));
    result.phase.push_back(std::arg(h) * 180 / std::numbers::pi);
    result.coherence.push_back(std::norm(sxy[k]) / (sxx[k] * syy[k]));
  }
  return result;
}

Correlation correlation_of(std::span<const double> a, std::span<const double> b, double period) {
  const size_t n = a.size();
  if (n < 2) throw error_t("A correlation needs at least two samples; choose a longer range");
  const Moments of_a = moments_of(a), of_b = moments_of(b);
  const double scale = of_a.deviation * of_b.deviation;
  if (!(scale > 0) || !std::isfinite(scale)) {
    throw error_t("One of the series does not vary (or is too large) in this range; choose another range");
  }
  const auto centred = [](double v, const Moments& m) { return std::isfinite(v) ? v - m.mean : 0.0; };

  // Blocks of a against the part of b that the lags reach; all add up before the one transform back.
  const size_t most = std::min(n - 1, most_lags);
  const size_t length = std::bit_ceil(4 * most);
  const size_t block = length - 2 * most;
  Transform transform(length);
  std::vector<Complex> sum(length);
  for (size_t at = 0; at < n; at += block) {
    for (size_t i = 0; i < length; ++i) {
      const double left = i < block && at + i < n ? centred(a[at + i], of_a) : 0.0;
      const size_t j = at + i;  // of b, `most` to the left
      const double right = j >= most && j - most < n ? centred(b[j - most], of_b) : 0.0;
      transform.set(i, left, right);
    }
    transform.run(true);
    for (size_t k = 0; k < length; ++k)
      sum[k] += std::conj(transform.real_part(k)) * transform.imaginary_part(k);
  }
  for (size_t k = 0; k < length; ++k) transform.set(k, sum[k].real(), sum[k].imag());
  transform.run(false);
  Correlation result;
  for (size_t i = 0; i <= 2 * most; ++i) {
    result.lags.push_back((static_cast<double>(i) - static_cast<double>(most)) * period);
    result.values.push_back(transform.at(i).real() / static_cast<double>(length) / scale);
  }
  return result;
}

}  // namespace kvalo_view
