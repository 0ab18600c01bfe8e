// The spectrogram of one series: amplitudes over time and frequency.
//
// Pieces of nfft samples, each `overlap` of them shared with the next, are weighted with a Hann window
// (Harris 1978), whose mean of 1/2 is taken out again, and transformed by mirn3::dsp::fft_values: a sine of
// amplitude A shows as A. A piece with a value that is not finite has no amplitudes (NaN).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "runtime/dsp_range.h"
#include "view/columns.h"

namespace kvalo_view {

struct Grid {
  size_t width = 0;
  size_t height = 0;
  Range x{0, 0};
  Range y{0, 0};
  std::vector<float> cells;  // rows from the lowest y up; NaN: none
  size_t samples = 0;        // cells of the whole that one column stands for
};

class Spectrogram {
 public:
  // 2 <= nfft, 0 <= overlap < 1 (values beyond are brought there). Throws exc::error_t, with a sentence that
  // says what to do, for too few samples and for stamps that do not ascend.
  Spectrogram(const mirn3::dsp::arg_t& range, size_t nfft, double overlap);

  // The part between the times, width columns and at most `height` rows: the greatest of the amplitudes that
  // touch a cell.
  Grid view(Range times, size_t width, size_t height) const;

  Range times() const { return times_; }
  double top() const { return line_ * (static_cast<double>(lines_) - 0.5); }  // upper edge, in hertz

 private:
  static constexpr size_t most_cells = size_t{1} << 24;

  size_t lines_ = 0;   // per piece
  size_t joined_ = 1;  // pieces whose maximum one column of cells_ holds
  double line_ = 0;    // hertz
  Range times_{0, 0};
  std::vector<double> starts_;  // left edge of each column in time; one more for the end
  std::vector<float> cells_;    // column after column
};

}  // namespace kvalo_view
