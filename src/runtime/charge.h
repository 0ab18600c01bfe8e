// Charges memory outside sample buffers to the budget for as long as this object lives.
#pragma once

#include <cstdint>
#include <utility>

#include "runtime/mem.h"

namespace mirn3::mem {

class Charge {
 public:
  Charge() = default;
  explicit Charge(uint64_t bytes) { add(bytes); }
  ~Charge() {
    if (bytes_ != 0) release(bytes_);
  }
  Charge(Charge&& other) noexcept : bytes_(std::exchange(other.bytes_, 0)) {}
  Charge& operator=(Charge&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    return *this;
  }

  // Charges more. May make room, which takes locks; throws when that fails, and then charges nothing more.
  void add(uint64_t bytes) {
    reserve(bytes);
    bytes_ += bytes;
  }

 private:
  uint64_t bytes_ = 0;
};

}  // namespace mirn3::mem
