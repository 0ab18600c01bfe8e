// Bit fields and pieces of other series, made from whatever samples those have when they are asked.
#include "containers/derived_readers.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "runtime/exc.h"
#include "runtime/python_lock.h"

namespace mirn2::rd {

namespace {

// The samples of a series as it is now. Call without the interpreter lock.
LoadedSamples samples_of(const TimeSeries& record) {
  std::optional<LoadPlan> plan;
  {
    const mirn3::python::Lock interpreter;
    if (record.is_loaded()) return {record.x->snapshot(), record.y->snapshot()};
    plan.emplace(record);
  }
  return plan->run();
}

void cut(const LoadedSamples& from, TimeWindow window, rto_t& to) {
  const auto x = from.x.span();
  const auto first = static_cast<uint64_t>(std::ranges::lower_bound(x, window.first) - x.begin());
  const auto last = static_cast<uint64_t>(std::ranges::upper_bound(x, window.last) - x.begin());
  const uint64_t inside = last > first ? last - first : 0;
  const bool begins_held = first > 0 && (inside == 0 || x[first] > window.first);
  const uint64_t held = begins_held ? 1 : 0;
  to.x.resize_for_overwrite(held + inside);
  to.y.resize_for_overwrite(held + inside);
  if (begins_held) {
    to.x[0] = window.first;
    to.y[0] = from.y[first - 1];
  }
  if (inside == 0) return;
  std::memcpy(to.x.data() + held, from.x.data() + first, inside * sizeof(double));
  std::memcpy(to.y.data() + held, from.y.data() + first, inside * sizeof(double));
}

}  // namespace

LoadedSamples ReaderUnpacked::decode(const LoadedSamples& source) const {
  LoadedSamples decoded;
  decoded.x = source.x;
  decoded.y.resize_for_overwrite(source.y.size());
  kernels::decode_bits(source.y.span(), field_, coding_, decoded.y.span());
  return decoded;
}

void ReaderUnpacked::load(rto_t& request) {
  LoadedSamples decoded = decode(samples_of(*source_));
  request.x = std::move(decoded.x);
  request.y = std::move(decoded.y);
}

ReaderWindow::ReaderWindow(std::filesystem::path path,
                           const std::vector<std::shared_ptr<TimeSeries>>& variables, TimeWindow window)
    : Reader(std::move(path)), window_(window) {
  for (const auto& series : variables) {
    if (series->parents.empty()) root_.children.push_back(node_of(series));
  }
}

VariableNode ReaderWindow::node_of(const std::shared_ptr<TimeSeries>& series) {
  VariableNode node{.name = series->main_name, .full_name = series->full_name, .children = {}};
  if (!sources_.emplace(series->full_name, series).second) return node;
  for (const auto& weak : series->children) {
    if (const auto child = weak.lock()) node.children.push_back(node_of(child));
  }
  return node;
}

void ReaderWindow::load(rto_t& request) {
  const auto source = sources_.find(std::string(request.name));
  if (source == sources_.end()) return refuse_name(request);
  cut(samples_of(*source->second), window_, request);
}

}  // namespace mirn2::rd
