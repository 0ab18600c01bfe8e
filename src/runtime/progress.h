// A line on the terminal while something takes long, so that people know it is alive.
//
// Shown on standard error after a second, only when that is a terminal and KVALO_PROGRESS is not 0; wiped
// when the work ends. One at a time: work within work, and on other threads, shows no second line.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "kvalo/export.h"

namespace mirn3::progress {

class MIRN3_API Line {
 public:
  // `what` is the beginning of a sentence: "Loading ATT.Roll".
  explicit Line(std::string_view what);
  ~Line();
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

 private:
  struct Watcher;
  std::unique_ptr<Watcher> watcher_;  // null when nothing is shown
};

// How much of the work under the present line is done; shown as a percentage. Cheap, and safe from every
// thread; without a line nothing happens.
MIRN3_API void report(uint64_t done, uint64_t total) noexcept;

}  // namespace mirn3::progress
