// mirn2::Container: one loaded source (possibly several files merged): its readers and its variables.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "objects/series.h"
#include "readers/reader.h"

namespace mirn2 {

struct ContainerObject;

class Container {
 public:
  Container();

  uint64_t id;
  ContainerObject* object = nullptr;  // the script object that shows it; not counted
  std::string name;

  // Scans the reader and makes its variables part of this container: finds or creates one series for every
  // node of its variable tree. Nothing changes if this throws.
  void insert_reader(std::shared_ptr<rd::Reader> reader);

  // Adds a variable that is computed from another one and has the same parents. Returns false, and does
  // nothing, if there is a variable of that full name.
  bool add_derived(const std::shared_ptr<TimeSeries>& source, const std::string& main_name,
                   std::shared_ptr<rd::Reader> reader);

  // Hands over the series that were created since the last call. Until then the container owns them.
  std::vector<std::shared_ptr<TimeSeries>> take_new_series() noexcept {
    return std::exchange(new_series_, {});
  }

  // One per loaded source, in load order.
  const std::vector<std::shared_ptr<rd::Reader>>& readers() const noexcept { return readers_; }

  // Every variable, groups before their members, in the order of their declaration. variables() leaves out
  // entries whose series is gone; count() does not.
  std::vector<std::shared_ptr<TimeSeries>> variables() const;
  size_t count() const noexcept { return order_.size(); }

  // The live variable whose main name is `key`, a top-level one first; else the one whose full name is.
  std::shared_ptr<TimeSeries> find(std::string_view key) const;

  // Whether there is a live variable of this main name.
  bool has_main_name(std::string_view main_name) const;

 private:
  struct Entry {
    std::weak_ptr<TimeSeries> series;
    std::string main_name;
    std::string full_name;
    bool top_level;
  };

  class Insertion;

  // By main name, every entry with that name, in order; by full name, the entry that find-or-create returns:
  // fields of one name in different groups stay apart.
  std::vector<Entry> order_;
  std::unordered_multimap<std::string, size_t> by_main_name_;
  std::unordered_map<std::string, size_t> by_full_name_;
  std::vector<std::shared_ptr<rd::Reader>> readers_;
  std::vector<std::shared_ptr<TimeSeries>> new_series_;
};

}  // namespace mirn2
