// The amplitude spectrum: estimate of the sampling period, and scaling.
#include "runtime/dsp_fft.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "runtime/dsp_dft.h"
#include "runtime/dsp_scan.h"
#include "runtime/exc.h"
#include "runtime/par.h"

namespace mirn3::dsp {

namespace {

constexpr size_t least = 1 << 15;  // elements for which a thread pays off

// The median of up to a thousand intervals spread over the range.
double typical_interval(std::span<const double> t) {
  constexpr size_t most = 1001;
  const size_t intervals = t.size() - 1;
  const size_t count = std::min(intervals, most);
  std::vector<double> some(count);
  for (size_t i = 0; i < count; ++i) {
    const size_t at = i * intervals / count;
    some[i] = t[at + 1] - t[at];
  }
  const auto middle = some.begin() + static_cast<ptrdiff_t>(count / 2);
  // NaN last: it has no order of its own.
  std::nth_element(some.begin(), middle, some.end(),
                   [](double a, double b) { return a < b || (a == a && b != b); });
  return *middle;
}

double sampling_period(std::span<const double> t) {
  const double typical = typical_interval(t);
  if (!(typical > 0) || std::isinf(typical)) {
    throw exc::error_t(
        "The time stamps of the selected range do not ascend; a spectrum needs a sampling period");
  }
  const auto is_regular = [typical](double interval) { return std::abs(interval - typical) <= typical / 2; };
  uint64_t odd = 0;
  for (size_t i = 1; i < t.size(); ++i) odd |= static_cast<uint64_t>(!is_regular(t[i] - t[i - 1]));
  // What is left of the whole span when the other intervals are taken out.
  double others = 0;
  size_t count = 0;
  for (size_t i = 1; odd != 0 && i < t.size(); ++i) {
    const double interval = t[i] - t[i - 1];
    if (is_regular(interval)) continue;
    others += interval;
    ++count;
  }
  const size_t regular = t.size() - 1 - count;
  const double period = (t.back() - t.front() - others) / static_cast<double>(regular);
  return regular > 0 && period > 0 ? period : typical;
}

[[noreturn]] void refuse_values() {
  throw exc::error_t(
      "The selected range holds values that are not finite, which would spoil every line of the spectrum; "
      "choose another range or leave such samples out");
}

}  // namespace

double fft_duration(const arg_t& range) {
  return sampling_period(range.stamps()) * static_cast<double>(range.size());
}

void fft_values(const arg_t& range, bool raw, std::span<double> values) {
  const std::span<const double> y = range.values();
  const size_t n = y.size();
  // A NaN is not a limit, but makes every line one.
  const Limits limits = limits_of(y);
  const double greatest = std::max(-limits.lo, limits.hi);
  if (!std::isfinite(greatest)) refuse_values();
  // Values whose squares would leave the range of a double are brought near 1, which is exact.
  const int exponent = greatest > 1e120 || (greatest < 1e-120 && greatest > 0) ? std::ilogb(greatest) : 0;
  std::vector<double> scaled;
  if (exponent != 0) {
    scaled.assign(y.begin(), y.end());
    for (double& value : scaled) value = std::ldexp(value, -exponent);
  }

  dft_magnitudes(exponent != 0 ? scaled : y, values);
  if (std::isnan(values[0])) refuse_values();
  if (!raw) {
    const auto count = static_cast<double>(n);
    par::ranges(values.size(), least, [&](size_t first, size_t last) {
      for (size_t k = first; k < last; ++k) values[k] *= (k == 0 || 2 * k == n ? 1 : 2) / count;
    });
  }
  if (exponent != 0) {
    for (double& value : values) value = std::ldexp(value, exponent);
  }
}

fft_t fft(const arg_t& range, bool raw) {
  fft_t lines{std::vector<double>(fft_lines(range)), std::vector<double>(fft_lines(range))};
  fft_values(range, raw, lines.values);
  const double duration = fft_duration(range);
  for (size_t k = 0; k < lines.frequencies.size(); ++k) {
    lines.frequencies[k] = static_cast<double>(k) / duration;
  }
  return lines;
}

}  // namespace mirn3::dsp
