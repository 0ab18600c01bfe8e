// Counts who uses which plug-in on which path, to decide when its start and end functions run.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace mirn2::rd {

// A plug-in is identified by the address of its library or module, which lives as long as its uses.
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

  // One reader ends its use. `last` is the use if that reader was the last one; the result says whether
  // readers are left, none are, or the use had ended already.
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

  // Removes and returns all uses: the process ends.
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
