// A loaded source: how its reader's variable tree becomes series.
#include "containers/container.h"

#include "objects/frame.h"
#include "objects/time_series.h"
#include "runtime/num.h"

namespace mirn2 {

Container::Container() : id(mirn3::num::create_id()) {}

// Collects what a reader offers, and adds it to the container when it is complete.
class Container::Insertion {
 public:
  explicit Insertion(Container& container) : container_(container) {}

  // Depth first, in node order; every node's series knows its parents and children.
  void build_family(const std::vector<rd::VariableNode>& nodes, const std::shared_ptr<TimeSeries>& parent) {
    for (const rd::VariableNode& node : nodes) {
      const std::shared_ptr<TimeSeries> series = find_or_create(node, parent == nullptr);
      if (parent) link(parent, series);
      build_family(node.children, series);
    }
  }

  void commit(const std::shared_ptr<rd::Reader>& reader) {
    container_.new_series_.insert(container_.new_series_.end(), created_.begin(), created_.end());
    for (Entry& entry : entries_) {
      const size_t position = container_.order_.size();
      container_.by_main_name_.emplace(entry.main_name, position);
      container_.by_full_name_[entry.full_name] = position;
      container_.order_.push_back(std::move(entry));
    }
    for (const auto& series : found_) {
      forget_samples(*series);  // loaded without this reader
      series->readers.push_back(reader);
    }
    for (const auto& [parent, child] : links_) {
      child->parents.push_back(parent);
      parent->children.push_back(child);
    }
  }

 private:
  std::shared_ptr<TimeSeries> find_or_create(const rd::VariableNode& node, bool top_level) {
    if (const auto new_one = new_by_full_name_.find(node.full_name); new_one != new_by_full_name_.end()) {
      return new_one->second;
    }
    if (const auto known = container_.by_full_name_.find(node.full_name);
        known != container_.by_full_name_.end()) {
      if (auto series = container_.order_[known->second].series.lock()) {
        found_.push_back(series);
        new_by_full_name_.emplace(node.full_name, series);
        return series;
      }
    }
    auto series = std::make_shared<TimeSeries>();
    series->main_name = node.name;
    series->full_name = node.full_name;
    created_.push_back(series);
    found_.push_back(series);
    new_by_full_name_.emplace(node.full_name, series);
    entries_.push_back({series, node.name, node.full_name, top_level});
    return series;
  }

  void link(const std::shared_ptr<TimeSeries>& parent, const std::shared_ptr<TimeSeries>& child) {
    for (const auto& weak : child->parents) {
      if (weak.lock() == parent) return;
    }
    links_.emplace_back(parent, child);
  }

  Container& container_;
  std::vector<Entry> entries_;
  std::vector<std::shared_ptr<TimeSeries>> created_;
  std::vector<std::shared_ptr<TimeSeries>> found_;  // every series that the reader can fill
  std::vector<std::pair<std::shared_ptr<TimeSeries>, std::shared_ptr<TimeSeries>>> links_;
  std::unordered_map<std::string, std::shared_ptr<TimeSeries>> new_by_full_name_;
};

void Container::insert_reader(std::shared_ptr<rd::Reader> reader) {
  const Trace trace("insert_reader");
  without_gil([&] {
    const rd::Reader::Turn one_at_a_time(*reader);
    reader->scan();
  });
  Insertion insertion(*this);
  {
    const Trace family("build_family");
    insertion.build_family(reader->variables(), nullptr);
  }
  insertion.commit(reader);
  readers_.push_back(std::move(reader));
}

bool Container::add_derived(const std::shared_ptr<TimeSeries>& source, const std::string& main_name,
                            std::shared_ptr<rd::Reader> reader) {
  const std::string_view full = source->full_name;
  const size_t own = full.size() >= source->main_name.size() ? full.size() - source->main_name.size() : 0;
  const std::string full_name = std::string(full.substr(0, own)) + main_name;
  if (by_full_name_.contains(full_name)) return false;
  auto series = std::make_shared<TimeSeries>();
  series->main_name = main_name;
  series->full_name = full_name;
  series->readers.push_back(std::move(reader));
  const size_t position = order_.size();
  order_.push_back({series, main_name, full_name, source->parents.empty()});
  by_main_name_.emplace(main_name, position);
  by_full_name_.emplace(full_name, position);
  for (const auto& weak : source->parents) {
    const std::shared_ptr<TimeSeries> parent = weak.lock();
    if (!parent) continue;
    series->parents.push_back(parent);
    parent->children.push_back(series);
  }
  new_series_.push_back(std::move(series));
  return true;
}

std::vector<std::shared_ptr<TimeSeries>> Container::variables() const {
  std::vector<std::shared_ptr<TimeSeries>> live;
  live.reserve(order_.size());
  for (const Entry& entry : order_) {
    if (auto series = entry.series.lock()) live.push_back(std::move(series));
  }
  return live;
}

std::shared_ptr<TimeSeries> Container::find(std::string_view key) const {
  const std::string wanted(key);
  const Entry* best = nullptr;
  std::shared_ptr<TimeSeries> found;
  const auto [first, last] = by_main_name_.equal_range(wanted);
  for (auto it = first; it != last; ++it) {
    const Entry& entry = order_[it->second];
    const bool better = best == nullptr || (entry.top_level && !best->top_level) ||
                        (entry.top_level == best->top_level && &entry < best);
    if (!better) continue;
    if (auto series = entry.series.lock()) {
      best = &entry;
      found = std::move(series);
    }
  }
  if (found) return found;
  const auto by_full_name = by_full_name_.find(wanted);
  return by_full_name != by_full_name_.end() ? order_[by_full_name->second].series.lock() : nullptr;
}

bool Container::has_main_name(std::string_view main_name) const {
  const auto [first, last] = by_main_name_.equal_range(std::string(main_name));
  for (auto it = first; it != last; ++it) {
    if (!order_[it->second].series.expired()) return true;
  }
  return false;
}

}  // namespace mirn2
