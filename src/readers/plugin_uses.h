// Who uses which plug-in on which path: decides when a plug-in's functions of beginning and end run.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace mirn2::rd {

// Plug-ins are told apart by the address of what stands for them, which lives as long as its uses.
class PluginUses {
 public:
  struct Use {
    size_t readers = 0;
    bool initialised = false;
    bool running = false;  // a live source between start and stop
  };
  using Key = std::pair<const void*, std::string>;

  void add(const Key& key) {
    const std::lock_guard guard(lock_);
    ++uses_[key].readers;
  }

  // One reader goes. Gives the use when that was the last one, else one with readers left; a use that has
  // been ended already has neither.
  enum class Left { readers, none, ended };
  Left remove(const Key& key, Use& last) noexcept {
    const std::lock_guard guard(lock_);
    const auto found = uses_.find(key);
    if (found == uses_.end()) return Left::ended;
    if (--found->second.readers > 0) return Left::readers;
    last = found->second;
    uses_.erase(found);
    return Left::none;
  }

  Use get(const Key& key) const {
    const std::lock_guard guard(lock_);
    const auto found = uses_.find(key);
    return found != uses_.end() ? found->second : Use();
  }

  void set(const Key& key, bool Use::*flag, bool value) {
    const std::lock_guard guard(lock_);
    if (const auto found = uses_.find(key); found != uses_.end()) found->second.*flag = value;
  }

  // All uses at once, which are forgotten: the process ends.
  std::vector<std::pair<Key, Use>> take_all() {
    const std::lock_guard guard(lock_);
    std::vector<std::pair<Key, Use>> all(uses_.begin(), uses_.end());
    uses_.clear();
    return all;
  }

 private:
  mutable std::mutex lock_;
  std::map<Key, Use> uses_;
};

}  // namespace mirn2::rd
