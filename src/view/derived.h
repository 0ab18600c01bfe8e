// What charts show that is not the samples themselves: spectra, correlations, counts, pairs, surfaces.
//
// Computed from all samples or from those of a span of time, by the kernels of the runtime where a script
// function computes the same.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "runtime/dsp_distribution.h"
#include "view/model.h"
#include "view/pixels.h"
#include "view/space.h"
#include "view/spectrogram.h"

namespace kvalo_view {

// A curve that owns its samples.
struct OwnCurve {
  std::vector<double> x, y;
  Pyramid pyramid;

  OwnCurve(std::vector<double> at, std::vector<double> values)
      : x(std::move(at)), y(std::move(values)), pyramid(x, y) {}
  OwnCurve(const OwnCurve&) = delete;  // the pyramid looks at y
  OwnCurve& operator=(const OwnCurve&) = delete;
  Curve curve() const { return {x, y, pyramid}; }
};

// Two values for each point of a cloud; `kept` owns what had to be paired.
struct Cloud {
  std::span<const double> x, y;
  std::vector<double> kept;
  Box box;
};

struct Derived {
  std::vector<std::shared_ptr<const Series>> from;
  Range span{0, 0};
  std::string error;  // why the rest is empty

  std::vector<std::unique_ptr<OwnCurve>> curves;  // fft: by series; bode: gain, phase, coherence; xcorr: one
  std::vector<std::unique_ptr<Cloud>> clouds;     // cross: by series, none for the first
  std::vector<mirn3::dsp::histogram_t> bars;      // hist: by series
  std::vector<Range> bars_x;                      // their first and last edge
  std::optional<Grid> heatmap;
  std::optional<Spectrogram> spectrogram;
  std::vector<Path> paths;
  std::optional<Surface> surface;
};

// Everything of a chart's kind. NaN in the span: all samples. What cannot be computed leaves `error`.
std::unique_ptr<Derived> derive(const Chart& chart, Range span);

}  // namespace kvalo_view
