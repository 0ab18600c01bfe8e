// Requests of a page, and batches for it.
#include "view/client.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kvalo_view {

namespace {

enum RequestKind : uint8_t { ask_view = 1, ask_probe, ask_statistics, acknowledge, set_visible, set_span };

struct PageRequest {
  uint8_t kind;
  uint8_t flags;
  uint16_t unused;
  uint32_t seq;
  uint32_t chart;
  uint16_t width;
  uint16_t height;
  double a, b, c, d;
};
static_assert(sizeof(PageRequest) == Client::frame_size);

constexpr size_t overview_columns = 2048;

std::vector<uint32_t> versions_of(const Chart& chart) {
  std::vector<uint32_t> result;
  for (const auto& series : chart.series) result.push_back(series->version);
  return result;
}

bool is_range(double a, double b) { return std::isfinite(a) && std::isfinite(b) && a < b; }
bool is_whole(double a, double b) { return std::isnan(a) && std::isnan(b); }

}  // namespace

bool Client::take(std::string_view frame, const State& state) {
  if (frame.size() != frame_size) return false;
  PageRequest request;
  std::memcpy(&request, frame.data(), sizeof request);
  if (request.kind == acknowledge) {
    if (request.seq == batch_) is_waiting_ = false;
    return true;
  }
  if (request.kind == set_visible) {
    is_visible_ = (request.flags & 1) != 0;
    return true;
  }
  if (request.kind < ask_view || request.kind > set_span) return false;
  if (!state.chart_of_key(request.chart)) return true;  // gone meanwhile

  Chart& chart = charts_[request.chart];
  switch (request.kind) {
    case ask_view: {
      if ((request.flags & 2) != 0) {
        chart.has_view = chart.is_pending = false;
        return true;
      }
      if (request.width == 0 || request.width > widest || request.height == 0 || request.height > highest)
        return false;
      if (!is_range(request.a, request.b) && !is_whole(request.a, request.b)) return false;
      View view;
      view.seq = request.seq;
      view.x = {request.a, request.b};
      view.y = {request.c, request.d};
      view.width = request.width;
      view.height = request.height;
      view.follow = (request.flags & 1) != 0;
      chart.view = view;
      chart.has_view = chart.is_pending = true;
      return true;
    }
    case ask_probe:
      chart.probe = Batch::Question{request.chart, request.seq, {request.a, request.a}};
      return true;
    case ask_statistics:
      if (!(request.a <= request.b)) return false;
      chart.statistics = Batch::Question{request.chart, request.seq, {request.a, request.b}};
      return true;
    default:
      if (!is_range(request.a, request.b) && !is_whole(request.a, request.b)) return false;
      chart.span = {request.a, request.b};
      chart.is_pending = chart.has_view;
      chart.overview_versions.clear();
      return true;
  }
}

std::optional<Batch> Client::next(std::shared_ptr<const State> state, uint64_t changes,
                                  Clock::time_point now) {
  later_.reset();
  if (is_waiting_ || !is_visible_) return {};
  if (batch_ != 0 && now < sent_at_ + least_interval) {
    later_ = sent_at_ + least_interval;
    return {};
  }
  Batch batch;
  batch.has_state = state->version != state_version_ || changes != changes_;
  std::erase_if(charts_, [&](const auto& entry) { return !state->chart_of_key(entry.first); });
  for (auto& [key, chart] : charts_) {
    if (chart.probe) batch.probes.push_back(*chart.probe);
    if (chart.statistics) batch.statistics.push_back(*chart.statistics);
    chart.probe.reset();
    chart.statistics.reset();
    if (!chart.has_view) continue;
    const std::vector<uint32_t> versions = versions_of(*state->chart_of_key(key));
    const bool is_new = versions != chart.versions;
    bool wants_overview = versions != chart.overview_versions;
    if (wants_overview && !chart.overview_versions.empty() && now < chart.overview_at + overview_interval) {
      wants_overview = false;
      later_ = std::min(later_.value_or(Clock::time_point::max()), chart.overview_at + overview_interval);
    }
    if (!chart.is_pending && !is_new && !wants_overview) continue;
    Batch::Wanted wanted{key, chart.view, chart.is_pending || is_new, wants_overview};
    wanted.view.span = chart.span;
    wanted.view.flags = chart.is_pending ? 0 : tile_push;
    batch.views.push_back(wanted);
    chart.is_pending = false;
    chart.versions = versions;
    if (wants_overview) {
      chart.overview_versions = versions;
      chart.overview_at = now;
    }
  }
  if (!batch.has_state && batch.probes.empty() && batch.statistics.empty() && batch.views.empty()) return {};
  batch.number = ++batch_;
  is_waiting_ = true;
  sent_at_ = now;
  state_version_ = state->version;
  batch.state = std::move(state);
  return batch;
}

void Client::answered(const Answer& answer) {
  if (answer.state_changes) changes_ = *answer.state_changes;
  for (const uint32_t key : answer.late) {
    const auto chart = charts_.find(key);
    if (chart == charts_.end()) continue;
    chart->second.is_pending = chart->second.has_view;
    chart->second.overview_versions.clear();
  }
}

Answer answer(const Batch& batch, Views& views, const StateText& about, std::chrono::milliseconds time) {
  Answer result;
  const State& state = *batch.state;
  views.forget(state);
  const auto add_text = [&](std::string text) { result.frames.push_back({true, std::move(text)}); };
  if (batch.has_state) {
    result.state_changes = views.changes();
    add_text(state_text(state, views, state.version + views.changes(), about));
  }
  for (const auto& probe : batch.probes) {
    const auto chart = state.chart_of_key(probe.chart);
    if (chart) add_text(values_text(*chart, probe.seq, probe.at.lo, views.values(*chart, probe.at.lo)));
  }
  const auto end = Clock::now() + time;
  const auto add_tiles = [&](const kvalo_view::Chart& chart, const View& view) {
    for (const Tile& tile : views.tiles(chart, view)) result.frames.push_back({false, tile.bytes()});
  };
  for (const auto& wanted : batch.views) {
    const auto chart = state.chart_of_key(wanted.chart);
    if (!chart) continue;
    if (&wanted != batch.views.data() && Clock::now() > end) {
      result.late.push_back(wanted.chart);
      continue;
    }
    if (wanted.has_view) add_tiles(*chart, wanted.view);
    if (wanted.has_overview) {
      View overview;
      overview.width = overview_columns;
      overview.span = wanted.view.span;
      overview.flags = tile_overview;
      add_tiles(*chart, overview);
    }
  }
  for (const auto& question : batch.statistics) {
    const auto chart = state.chart_of_key(question.chart);
    if (chart)
      add_text(statistics_text(*chart, question.seq, question.at, views.statistics(*chart, question.at)));
  }
  add_text("{\"type\":\"end\",\"batch\":" + std::to_string(batch.number) + "}");
  result.changes = views.changes();
  return result;
}

}  // namespace kvalo_view
