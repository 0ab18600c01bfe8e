// Computes spectrograms and cuts views out of them.
#include "view/spectrogram.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "runtime/dsp_fft.h"
#include "runtime/exc.h"
#include "runtime/par.h"

namespace kvalo_view {

namespace {

constexpr float none = std::numeric_limits<float>::quiet_NaN();

// The greater one; NaN only when both are.
float greater(float a, float b) { return std::isnan(a) || b > a ? b : a; }

std::vector<double> hann(size_t n) {
  std::vector<double> window(n);
  for (size_t i = 0; i < n; ++i) {
    window[i] = 1 - std::cos(2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n));
  }
  return window;  // twice the window, which makes up for its mean
}

}  // namespace

Spectrogram::Spectrogram(const mirn3::dsp::arg_t& range, size_t nfft, double overlap) {
  const size_t n = range.size();
  nfft = std::max<size_t>(nfft, 2);
  if (n < nfft) {
    throw mirn3::exc::error_t("There are fewer samples than one transform takes; pass a smaller nfft");
  }
  overlap = std::isfinite(overlap) ? std::clamp(overlap, 0.0, 1.0) : 0.0;
  const auto share = static_cast<double>(nfft) * (1 - overlap);
  const size_t hop = std::max<size_t>(static_cast<size_t>(std::lround(share)), 1);
  const double period = mirn3::dsp::fft_duration(range) / static_cast<double>(n);
  const size_t pieces = (n - nfft) / hop + 1;
  lines_ = nfft / 2 + 1;
  line_ = 1 / (period * static_cast<double>(nfft));
  joined_ = (pieces * lines_ + most_cells - 1) / most_cells;
  const size_t columns = (pieces + joined_ - 1) / joined_;

  // A piece is shown around its middle, as wide as the hop.
  const double half = period * static_cast<double>(hop) / 2;
  for (size_t column = 0; column < columns; ++column) {
    const size_t at = range.first + column * joined_ * hop;
    starts_.push_back((range.x[at] + range.x[at + nfft - 1]) / 2 - half);
  }
  const size_t last = range.first + (pieces - 1) * hop;
  starts_.push_back((range.x[last] + range.x[last + nfft - 1]) / 2 + half);
  times_ = {starts_.front(), starts_.back()};

  cells_.assign(columns * lines_, none);
  const std::vector<double> window = hann(nfft);
  mirn3::par::ranges(columns, std::max<size_t>(65536 / nfft, 1), [&](size_t first, size_t end) {
    std::vector<double> piece(nfft), amplitudes(lines_);
    for (size_t i = first * joined_; i < std::min(end * joined_, pieces); ++i) {
      const double* values = range.y + range.first + i * hop;
      if (!std::all_of(values, values + nfft, [](double v) { return std::isfinite(v); })) continue;
      for (size_t k = 0; k < nfft; ++k) piece[k] = values[k] * window[k];
      mirn3::dsp::fft_values({range.x, piece.data(), 0, nfft}, false, amplitudes);
      float* column = cells_.data() + i / joined_ * lines_;
      for (size_t k = 0; k < lines_; ++k) column[k] = greater(column[k], static_cast<float>(amplitudes[k]));
    }
  });
}

Grid Spectrogram::view(Range times, size_t width, size_t height) const {
  const size_t group = (lines_ + height - 1) / height;  // lines of one row
  const size_t rows = (lines_ + group - 1) / group;
  Grid grid{width, rows, times, {-line_ / 2, line_ * (static_cast<double>(rows * group) - 0.5)}, {}, 0};
  grid.cells.assign(width * rows, none);
  const size_t columns = starts_.size() - 1;
  const auto first_at = [&](double t) {  // the column of cells that covers t
    const size_t after = upper_index(starts_, t, columns / 2);
    return after == 0 ? 0 : after - 1;
  };
  size_t touched = 0;
  for (size_t k = 0; k < width; ++k) {
    const double left = edge(times, k, width), right = edge(times, k + 1, width);
    if (right < times_.lo || left >= times_.hi) continue;
    for (size_t column = first_at(left); column < columns && starts_[column] < right; ++column, ++touched) {
      for (size_t line = 0; line < lines_; ++line) {
        float& cell = grid.cells[line / group * width + k];
        cell = greater(cell, cells_[column * lines_ + line]);
      }
    }
  }
  grid.samples = std::max<size_t>(touched * joined_ / width, 1);
  return grid;
}

}  // namespace kvalo_view
