// Computes each kind of chart.
#include "view/derived.h"

#include <algorithm>
#include <cmath>

#include "runtime/dsp_fft.h"
#include "runtime/exc.h"
#include "view/pairs.h"

namespace kvalo_view {

namespace {

using mirn3::dsp::arg_t;
using mirn3::exc::error_t;

constexpr size_t fewest = 3;          // samples that a spectrum or a distribution is made from
constexpr size_t heatmap_cells = 30;  // a side, as kvalo.heatmapdata has it

const Data& data_of(const Chart& chart, size_t series) { return *chart.series.at(series)->data; }

bool is_whole(Range span) { return std::isnan(span.lo) || std::isnan(span.hi); }

void need(const Chart& chart, size_t series, const char* text) {
  if (chart.series.size() < series) throw error_t(text);
}

// The samples of a span of time.
arg_t range_of(const Data& data, Range span) {
  arg_t range{data.x().data(), data.y().data(), 0, data.size()};
  if (!data.pyramid().ascends())
    throw error_t("The time stamps do not ascend; sort the series by time first");
  if (!is_whole(span)) {
    const Part part = part_of(data.x(), span);
    range.first = part.first;
    range.last = part.last;
  }
  if (range.size() < fewest) throw error_t("The range holds fewer than three samples; choose a longer one");
  return range;
}

bool share_time(const Data& a, const Data& b) { return a.x().data() == b.x().data() && a.size() == b.size(); }

// The values of b at the stamps of a's range, each the last one that is not later.
std::vector<double> paired(const arg_t& a, const Data& b) {
  if (!b.pyramid().ascends()) throw error_t("The time stamps do not ascend; sort the series by time first");
  return held_at(a.stamps(), b.x(), b.y());
}

double period_of(const arg_t& range) {
  return mirn3::dsp::fft_duration(range) / static_cast<double>(range.size());
}

std::unique_ptr<OwnCurve> spectrum(const arg_t& range) {
  std::vector<double> x(mirn3::dsp::fft_lines(range)), y(x.size());
  const double duration = mirn3::dsp::fft_duration(range);
  for (size_t k = 0; k < x.size(); ++k) x[k] = static_cast<double>(k) / duration;
  mirn3::dsp::fft_values(range, false, y);
  return std::make_unique<OwnCurve>(std::move(x), std::move(y));
}

void fft(const Chart& chart, Derived& result) {
  for (size_t i = 0; i < chart.series.size(); ++i) {
    result.curves.push_back(spectrum(range_of(data_of(chart, i), result.span)));
  }
}

void bode(const Chart& chart, Derived& result) {
  need(chart, 2, "A Bode diagram takes two series: send the input, then the output, to the same chart");
  const arg_t input = range_of(data_of(chart, 0), result.span);
  Transfer transfer = transfer_of(input.values(), paired(input, data_of(chart, 1)), period_of(input));
  for (auto* values : {&transfer.gain, &transfer.phase, &transfer.coherence}) {
    result.curves.push_back(std::make_unique<OwnCurve>(transfer.frequencies, std::move(*values)));
  }
}

void xcorr(const Chart& chart, Derived& result) {
  need(chart, 2, "A cross-correlation takes two series: send both to the same chart");
  const arg_t first = range_of(data_of(chart, 0), result.span);
  Correlation found = correlation_of(first.values(), paired(first, data_of(chart, 1)), period_of(first));
  result.curves.push_back(std::make_unique<OwnCurve>(std::move(found.lags), std::move(found.values)));
}

void hist(const Chart& chart, Derived& result) {
  for (size_t i = 0; i < chart.series.size(); ++i) {
    const auto bins = static_cast<size_t>(std::max(chart.series[i]->param, 3));
    const arg_t range = range_of(data_of(chart, i), result.span);
    result.bars.push_back(mirn3::dsp::histogram(range, std::min(bins, mirn3::dsp::most_bins)));
    const auto& centres = result.bars.back().centres;
    const double half = (centres[1] - centres[0]) / 2;
    result.bars_x.push_back({centres.front() - half, centres.back() + half});
  }
}

// Centres of the cells of one axis of a heat map begin and end half a cell inside of the limits.
void heatmap(const Chart& chart, Derived& result) {
  need(chart, 2, "A heat map takes two series: send x, then y, to the same chart");
  const Data& data_y = data_of(chart, 1);
  const arg_t x = range_of(data_of(chart, 0), result.span), y = range_of(data_y, result.span);
  const auto map = mirn3::dsp::heatmap(x, y, heatmap_cells, heatmap_cells);
  if (map.total == 0) throw error_t("The two series have no values at the same time in this range");
  const std::vector<double> held = held_at(x.stamps(), y.stamps(), y.values());
  const Box box = box_of(x.values(), held);
  Grid grid{heatmap_cells, heatmap_cells, box.x, box.y, {}, 1};
  // As the counts have it: a range without extent is widened by 0.5.
  const auto widened = [](Range r) {
    const double half = std::max(0.5, std::fabs(r.lo) * 0x1p-32);
    return r.lo < r.hi ? r : Range{r.lo - half, r.hi + half};
  };
  grid.x = widened(grid.x);
  grid.y = widened(grid.y);
  for (const auto& row : map.rows) {
    for (const double count : row) grid.cells.push_back(static_cast<float>(count));
  }
  result.heatmap = std::move(grid);
}

void cross(const Chart& chart, Derived& result) {
  need(chart, 2,
       "A cross plot takes two series: send the one of the x axis first, then those to show against it");
  const Data& across = data_of(chart, 0);
  result.clouds.emplace_back();
  for (size_t i = 1; i < chart.series.size(); ++i) {
    const Data& up = data_of(chart, i);
    auto cloud = std::make_unique<Cloud>();
    if (share_time(across, up) && is_whole(result.span)) {
      cloud->x = across.y();
      cloud->y = up.y();
    } else {
      const arg_t range = range_of(across, result.span);
      cloud->x = range.values();
      cloud->kept = paired(range, up);
      cloud->y = cloud->kept;
    }
    cloud->box = box_of(cloud->x, cloud->y);
    result.clouds.push_back(std::move(cloud));
  }
}

void spectro(const Chart& chart, Derived& result) {
  need(chart, 1, "A spectrogram takes a series");
  const Series& series = *chart.series[0];
  const auto nfft = static_cast<size_t>(std::clamp(series.param, 2, 1 << 20));
  result.spectrogram.emplace(range_of(*series.data, result.span), nfft, series.vmin);
}

void line3d(const Chart& chart, Derived& result) {
  const size_t series = chart.series.size();
  need(chart, 1, "A line in space takes a series, better three: x, y and z");
  for (size_t i = 0; i < series; i += 3) {
    const size_t left = std::min<size_t>(series - i, 3);
    const arg_t first = range_of(data_of(chart, i), result.span);
    const auto values = std::vector<double>(first.values().begin(), first.values().end());
    const auto other = [&](size_t k) { return paired(first, data_of(chart, i + k)); };
    if (left == 3) {
      result.paths.push_back(path_of(values, other(1), other(2)));
    } else if (left == 2) {
      result.paths.push_back(path_of(first.stamps(), values, other(1)));
    } else {
      result.paths.push_back(path_of(first.stamps(), values, std::vector<double>(values.size())));
    }
  }
}

void mesh(const Chart& chart, Derived& result) {
  need(chart, 1, "A surface takes a kvalo.Mesh");
  const Data& data = data_of(chart, 0);
  if (data.z().empty() || data.mesh_x().size() != data.mesh_y().size() / data.z().size() ||
      data.mesh_y().size() % data.z().size() != 0) {
    throw error_t("The mesh does not have one value for each pair of its x and z axes");
  }
  result.surface = surface_of(data.mesh_x(), data.z(), data.mesh_y());
}

// bool: series whose values lie on both sides of 0 need a curve of their own, as extremes do not tell
// whether 0 is among them.
void truths(const Chart& chart, Derived& result) {
  for (const auto& series : chart.series) {
    const Data& data = *series->data;
    const Extremes all = data.pyramid().whole();
    auto& own = result.curves.emplace_back();
    if (!data.pyramid().ascends() || all.empty() || all.lo >= 0 || all.hi <= 0) continue;
    std::vector<double> y(data.y().begin(), data.y().end());
    for (double& value : y) value = std::isfinite(value) ? static_cast<double>(value != 0) : value;
    own = std::make_unique<OwnCurve>(std::vector<double>(data.x().begin(), data.x().end()), std::move(y));
  }
}

}  // namespace

std::unique_ptr<Derived> derive(const Chart& chart, Range span) {
  auto result = std::make_unique<Derived>();
  result->from = chart.series;
  result->span = span;
  if (chart.series.empty()) return result;
  try {
    switch (chart.kind) {
      case Kind::line:
      case Kind::synoptic:
        break;
      case Kind::boolean:
        truths(chart, *result);
        break;
      case Kind::cross:
        cross(chart, *result);
        break;
      case Kind::fft:
        fft(chart, *result);
        break;
      case Kind::bode:
        bode(chart, *result);
        break;
      case Kind::xcorr:
        xcorr(chart, *result);
        break;
      case Kind::hist:
        hist(chart, *result);
        break;
      case Kind::heatmap:
        heatmap(chart, *result);
        break;
      case Kind::spectro:
        spectro(chart, *result);
        break;
      case Kind::line3d:
        line3d(chart, *result);
        break;
      case Kind::mesh:
        mesh(chart, *result);
        break;
    }
  } catch (const std::bad_alloc&) {
    result->error = "There is not enough memory to compute this chart; choose a shorter range";
  } catch (const std::exception& error) {
    result->error = error.what();
  }
  return result;
}

}  // namespace kvalo_view
