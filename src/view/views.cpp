// Picks what a chart's kind draws, and looks up values.
#include "view/views.h"

#include <algorithm>
#include <cmath>

#include "view/draw.h"

namespace kvalo_view {

namespace {

constexpr double nan = View::nan;
constexpr size_t widest_grid = 4096;  // cells cost four bytes each
constexpr size_t highest_grid = 2048;
constexpr double inf = std::numeric_limits<double>::infinity();

bool is_set(Range range) { return range.lo < range.hi && std::isfinite(range.lo) && std::isfinite(range.hi); }

void include(Range& all, Range part) {
  if (!(part.lo <= part.hi)) return;
  all.lo = std::min(all.lo, part.lo);
  all.hi = std::max(all.hi, part.hi);
}

// The time of all series.
Range times_of(const Chart& chart) {
  Range all{inf, -inf};
  for (const auto& series : chart.series) include(all, series->data->times());
  return all;
}

Range curves_x(const Derived& derived) {
  Range all{inf, -inf};
  for (const auto& own : derived.curves) {
    if (own && !own->x.empty()) include(all, {own->x.front(), own->x.back()});
  }
  return all;
}

Range clouds_x(const Derived& derived) {
  Range all{inf, -inf};
  for (const auto& cloud : derived.clouds) {
    if (cloud) include(all, cloud->box.x);
  }
  return all;
}

Look look_of(const Chart& chart, const Series& series) {
  if (chart.kind == Kind::boolean) return Look::truth;
  return series.style == mirn3::ilc::style_t::boolean ? Look::hold : Look::line;
}

// The range of a view on an axis that is `all` wide.
Range range_of(const View& view, Range all) {
  if (!is_set(view.x)) return with_extent(all);
  if (!view.follow || !(all.lo <= all.hi)) return view.x;
  return {all.hi - (view.x.hi - view.x.lo), all.hi};
}

bool is_dotted(const Series& series) {
  return series.style == mirn3::ilc::style_t::dots || !series.data->pyramid().ascends();
}

void draw_series(Tile& tile, const Chart& chart, const Series& series, const OwnCurve* truth, Range range,
                 const View& view) {
  const Data& data = *series.data;
  const Pyramid& pyramid = data.pyramid();
  if (!pyramid.ascends()) tile.header.flags |= tile_descending;
  if (is_dotted(series)) {
    const Extremes all = pyramid.whole();
    const Range up = with_extent(is_set(view.y) ? view.y : Range{all.lo, all.hi});
    const Part part = pyramid.ascends() ? part_of(data.x(), range) : Part{0, data.size()};
    draw_dots(tile, data.x().subspan(part.first, part.size()), data.y().subspan(part.first, part.size()),
              range, up, view.width, view.height);
  } else if (truth != nullptr) {
    draw_curve(tile, truth->curve(), Look::truth, range, view.width);
  } else {
    draw_curve(tile, {data.x(), data.y(), pyramid}, look_of(chart, series), range, view.width);
  }
}

void draw_bars(Tile& tile, const mirn3::dsp::histogram_t& bars, Range x) {
  tile.header.form = Form::bars;
  tile.header.x0 = x.lo;
  tile.header.x1 = x.hi;
  tile.header.n = static_cast<uint32_t>(bars.values.size());
  tile.append(std::span<const double>(bars.centres));
  tile.append(std::span<const double>(bars.values));
}

Point at_index(const Curve& curve, size_t i) { return {curve.x[i], curve.y[i]}; }

ValueAt value_of(uint32_t key, const Curve& curve, double t) {
  ValueAt result{key, {nan, nan}, {nan, nan}};
  if (curve.x.empty()) return result;
  const size_t after = std::isnan(t) ? curve.x.size() : upper_index(curve.x, t, curve.x.size() / 2);
  if (after > 0) result.held = at_index(curve, after - 1);
  const bool later = after < curve.x.size() && (after == 0 || curve.x[after] - t < t - curve.x[after - 1]);
  result.near = at_index(curve, later ? after : after - 1);
  return result;
}

}  // namespace

bool has_time_axis(Kind kind) {
  return kind == Kind::line || kind == Kind::boolean || kind == Kind::spectro || kind == Kind::synoptic;
}

bool has_curves(Kind kind) {
  return kind == Kind::line || kind == Kind::boolean || kind == Kind::fft || kind == Kind::bode ||
         kind == Kind::xcorr;
}

std::vector<Tile> Views::tiles(const Chart& chart, const View& view) {
  std::vector<Tile> result;
  const auto add = [&](uint32_t series, uint32_t version) -> Tile& {
    Tile& tile = result.emplace_back();
    tile.header.flags = view.flags;
    tile.header.seq = view.seq;
    tile.header.chart = chart.key;
    tile.header.series = series;
    tile.header.version = version;
    return tile;
  };
  const auto add_of = [&](size_t i) -> Tile& { return add(chart.series[i]->key, chart.series[i]->version); };
  // Only curves are drawn at once when a reader zooms out.
  const bool is_overview = (view.flags & tile_overview) != 0;
  if (is_overview && !has_curves(chart.kind)) return result;
  const auto newest = [&] {
    uint32_t version = 0;
    for (const auto& series : chart.series) version = std::max(version, series->version);
    return version;
  };
  const bool was_ready = std::all_of(chart.series.begin(), chart.series.end(),
                                     [](const auto& series) { return series->data->is_ready(); });
  const Derived& data = derived(chart, has_time_axis(chart.kind) ? Range{nan, nan} : view.span);
  if (!data.error.empty()) return result;

  switch (chart.kind) {
    case Kind::line:
    case Kind::boolean: {
      const Range range = range_of(view, times_of(chart));
      for (size_t i = 0; i < chart.series.size(); ++i) {
        if (is_overview && is_dotted(*chart.series[i])) continue;
        const OwnCurve* truth = i < data.curves.size() ? data.curves[i].get() : nullptr;
        draw_series(add_of(i), chart, *chart.series[i], truth, range, view);
      }
      break;
    }
    case Kind::fft:
    case Kind::bode:
    case Kind::xcorr: {
      const Range range = range_of(view, curves_x(data));
      for (size_t i = 0; i < data.curves.size(); ++i) {
        Tile& tile = chart.kind == Kind::fft ? add_of(i) : add(static_cast<uint32_t>(i), newest());
        draw_curve(tile, data.curves[i]->curve(), Look::line, range, view.width);
      }
      break;
    }
    case Kind::cross: {
      const Range range = range_of(view, clouds_x(data));
      Range up{inf, -inf};
      for (size_t i = 1; i < data.clouds.size(); ++i) include(up, data.clouds[i]->box.y);
      for (size_t i = 1; i < data.clouds.size(); ++i) {
        draw_dots(add_of(i), data.clouds[i]->x, data.clouds[i]->y, range,
                  with_extent(is_set(view.y) ? view.y : up), view.width, view.height);
      }
      break;
    }
    case Kind::hist:
      for (size_t i = 0; i < data.bars.size(); ++i) draw_bars(add_of(i), data.bars[i], data.bars_x[i]);
      break;
    case Kind::heatmap:
      if (data.heatmap) draw_grid(add(0, newest()), *data.heatmap);
      break;
    case Kind::spectro:
      if (data.spectrogram) {
        const Range range = range_of(view, data.spectrogram->times());
        draw_grid(add(0, newest()), data.spectrogram->view(range, std::min(view.width, widest_grid),
                                                           std::min(view.height, highest_grid)));
      }
      break;
    case Kind::line3d:
      for (size_t i = 0; i < data.paths.size(); ++i)
        draw_path(add(static_cast<uint32_t>(i), newest()), data.paths[i]);
      break;
    case Kind::mesh:
      if (data.surface) draw_surface(add(0, newest()), *data.surface);
      break;
    case Kind::synoptic:
      break;
  }
  if (!was_ready) ++changes_;
  return result;
}

std::vector<ValueAt> Views::values(const Chart& chart, double at) {
  std::vector<ValueAt> result;
  if (has_time_axis(chart.kind)) {
    for (const auto& series : chart.series) {
      const Pyramid& pyramid = series->data->pyramid();
      if (pyramid.ascends()) {
        result.push_back(value_of(series->key, {series->data->x(), series->data->y(), pyramid}, at));
      }
    }
    return result;
  }
  const auto found = derived_.find(chart.key);
  if (found == derived_.end()) return result;
  for (size_t i = 0; i < found->second->curves.size(); ++i) {
    result.push_back(value_of(static_cast<uint32_t>(i), found->second->curves[i]->curve(), at));
  }
  return result;
}

std::vector<Statistics> Views::statistics(const Chart& chart, Range times) const {
  std::vector<Statistics> result;
  for (const auto& series : chart.series) {
    const Data& data = *series->data;
    Statistics& s = result.emplace_back();
    s.series = series->key;
    const bool ascends = data.pyramid().ascends();
    const Part part = ascends ? part_of(data.x(), times) : Part{0, data.size()};
    const auto each = [&](const auto& use) {
      for (size_t i = part.first; i < part.last; ++i) {
        if (ascends || (data.x()[i] >= times.lo && data.x()[i] <= times.hi))
          use(Point{data.x()[i], data.y()[i]});
      }
    };
    double sum = 0, squares = 0;
    each([&](Point p) {
      ++s.n;
      if (!std::isfinite(p.y)) return;
      if (s.finite++ == 0) s.first = s.least = s.greatest = p;
      if (p.y < s.least.y) s.least = p;
      if (p.y > s.greatest.y) s.greatest = p;
      s.last = p;
      sum += p.y;
      squares += p.y * p.y;
    });
    if (s.finite == 0) continue;
    const auto n = static_cast<double>(s.finite);
    s.mean = sum / n;
    s.rms = std::sqrt(squares / n);
    double spread = 0;  // in a second pass: the squares of values with a large mean would cancel
    each([&](Point p) { spread += std::isfinite(p.y) ? (p.y - s.mean) * (p.y - s.mean) : 0; });
    if (s.finite > 1) s.deviation = std::sqrt(spread / (n - 1));
  }
  return result;
}

std::optional<Range> Views::x_range(const Chart& chart) const {
  Range all{inf, -inf};
  if (has_time_axis(chart.kind)) {
    for (const auto& series : chart.series) {
      if (series->data->is_ready()) include(all, series->data->times());
    }
  } else if (const auto found = derived_.find(chart.key); found != derived_.end()) {
    const Derived& data = *found->second;
    for (const Range x : {curves_x(data), clouds_x(data)}) include(all, x);
    for (const Range x : data.bars_x) include(all, x);
    if (data.heatmap) include(all, data.heatmap->x);
  }
  return all.lo <= all.hi ? std::optional(all) : std::nullopt;
}

std::string Views::error(const Chart& chart) const {
  const auto found = derived_.find(chart.key);
  return found == derived_.end() ? std::string() : found->second->error;
}

const Derived& Views::derived(const Chart& chart, Range span) {
  auto& kept = derived_[chart.key];
  const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
  if (!kept || kept->from != chart.series || !same(kept->span.lo, span.lo) || !same(kept->span.hi, span.hi)) {
    kept.reset();  // before the next one takes memory
    kept = derive(chart, span);
    ++changes_;
  }
  return *kept;
}

void Views::forget(const State& state) {
  std::erase_if(derived_, [&](const auto& entry) {
    const auto chart = state.chart_of_key(entry.first);
    return !chart || chart->series != entry.second->from;
  });
}

}  // namespace kvalo_view
