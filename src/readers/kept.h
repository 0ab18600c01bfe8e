// What a reader has learned about its file: kept for the next load, dropped at any time.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <utility>

#include "runtime/sys.h"

namespace mirn2::rd {

// Holds one Learned, whose `stamp` says what state of the file it belongs to. Every thread may call it. The
// lock is held only to copy the pointer: a load works with its own share.
template <typename Learned>
class Kept {
 public:
  // What was learned of the file in this state, or null.
  std::shared_ptr<Learned> of(const mirn3::sys::FileStamp& stamp) const {
    const std::lock_guard lock(mutex_);
    return learned_ && learned_->stamp == stamp ? learned_ : nullptr;
  }

  // What is known of the file as it is now. Where nothing is, forgets what was known of an earlier state and
  // keeps what learn(stamp) returns.
  template <typename Learn>
  std::shared_ptr<Learned> current(const std::filesystem::path& path, Learn&& learn) {
    const mirn3::sys::FileStamp stamp = mirn3::sys::file_stamp(path);
    if (auto known = of(stamp)) return known;
    drop();
    return keep(learn(stamp));
  }

  // Keeps it instead of the earlier one, and returns it.
  std::shared_ptr<Learned> keep(std::shared_ptr<Learned> fresh) {
    std::shared_ptr<Learned> before;  // destroyed without the lock
    const std::lock_guard lock(mutex_);
    before = std::exchange(learned_, std::move(fresh));
    return learned_;
  }

  void drop() noexcept {
    std::shared_ptr<Learned> before;
    const std::lock_guard lock(mutex_);
    before.swap(learned_);
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<Learned> learned_;
};

}  // namespace mirn2::rd
