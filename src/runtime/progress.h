// Shows a line on the terminal while something takes long.
//
// Shown on standard error after a second, only when that is a terminal and KVALO_PROGRESS is not 0; wiped
// when the work ends. One at a time: nested work, and work on other threads, shows no second line.
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

// Sets how much of the work of the current line is done, shown as a percentage. Cheap; any thread may call
// it; does nothing without a line.
MIRN3_API void report(uint64_t done, uint64_t total) noexcept;

}  // namespace mirn3::progress
