// The series record: its objects, and how its samples are loaded.
#include "objects/series_record.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

#include "kernels/array.h"
#include "readers/reader.h"
#include "runtime/exc.h"

namespace mirn2 {

SeriesRegistry* series_registry = nullptr;

std::shared_ptr<TimeSeries> TimeSeries::child(std::string_view name) const {
  for (const auto& weak : children) {
    auto record = weak.lock();
    if (record && record->main_name == name) return record;
  }
  return nullptr;
}

void TimeSeries::attach(TimeSeriesObject* object) {
  shown_by.push_back(object);
  owner = object;
}

bool TimeSeries::detach(TimeSeriesObject* object) noexcept {
  std::erase(shown_by, object);
  owner = shown_by.empty() ? nullptr : shown_by.back();
  return shown_by.empty();
}

bool TimeSeries::can_unload() const noexcept {
  if (in_use > 0 || readers.empty()) return false;
  const bool reloadable = std::ranges::all_of(
      readers, [](const auto& reader) { return reader->state() == rd::LoaderState::reloadable; });
  return reloadable && !(x && x->is_modified()) && !(y && y->is_modified());
}

namespace {

// NaN sorts after every number.
bool is_earlier(double s, double t) { return std::isnan(t) ? !std::isnan(s) : s < t; }

// Merges parts by time, stable. No part is empty; they are in order of their first stamp.
LoadedSamples join(const std::vector<LoadedSamples>& parts) {
  uint64_t total = 0;
  for (const LoadedSamples& part : parts) total += part.x.size();
  LoadedSamples joined;
  joined.x.resize_for_overwrite(total);
  joined.y.resize_for_overwrite(total);
  uint64_t at = 0;
  bool apart = true;  // every part ends before the next one begins
  for (const LoadedSamples& part : parts) {
    if (at != 0 && !(joined.x[at - 1] <= part.x[0])) apart = false;
    std::memcpy(joined.x.data() + at, part.x.data(), part.x.size() * sizeof(double));
    std::memcpy(joined.y.data() + at, part.y.data(), part.y.size() * sizeof(double));
    at += part.x.size();
  }
  if (apart) return joined;
  std::vector<uint64_t> order(total);
  std::iota(order.begin(), order.end(), 0);
  std::ranges::stable_sort(order,
                           [&](uint64_t a, uint64_t b) { return is_earlier(joined.x[a], joined.x[b]); });
  LoadedSamples sorted;
  sorted.x.resize_for_overwrite(total);
  sorted.y.resize_for_overwrite(total);
  for (uint64_t i = 0; i < total; ++i) {
    sorted.x[i] = joined.x[order[i]];
    sorted.y[i] = joined.y[order[i]];
  }
  return sorted;
}

void apply(const AxisScale& scale, Samples& axis) {
  if (scale.is_identity()) return;
  axis.make_unique();
  kernels::scale(axis.span(), scale.gain, scale.offset);
}

}  // namespace

void set_clock(LoadedSamples& samples, const Samples& clock, const std::string& name) {
  if (samples.x.size() == clock.size()) {
    samples.x = clock;
  } else {
    rd::warn(fmt::format("'{:s}' keeps its time values: it has {} samples, and the new time values are {}",
                         name, samples.x.size(), clock.size()));
  }
}

LoadedSamples LoadPlan::load_one(rd::Reader& reader) const {
  const rd::Reader::Turn one_at_a_time(reader);
  rd::rto_t request;
  request.tag_key = tag_key_;
  request.name = name_;
  reader.load(request);
  if (request.x.size() != request.y.size()) {
    throw mirn3::exc::error_t("The source gave " + std::to_string(request.x.size()) + " times for " +
                              std::to_string(request.y.size()) + " values");
  }
  return {std::move(request.x), std::move(request.y)};
}

LoadedSamples LoadPlan::run() const {
  std::vector<LoadedSamples> parts;
  for (const auto& reader : readers_) {
    LoadedSamples part = load_one(*reader);
    if (!part.x.empty()) parts.push_back(std::move(part));
  }
  LoadedSamples samples;
  if (parts.size() == 1) {
    samples = std::move(parts.front());
  } else if (parts.size() > 1) {
    std::ranges::stable_sort(
        parts, [](const LoadedSamples& a, const LoadedSamples& b) { return is_earlier(a.x[0], b.x[0]); });
    samples = join(parts);
  }
  if (!clock_.empty()) set_clock(samples, clock_, name_);
  apply(x_scale_, samples.x);
  apply(y_scale_, samples.y);
  return samples;
}

}  // namespace mirn2
