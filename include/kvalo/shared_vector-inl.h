// The parts of mirn3::shared_vector<double> that are too long for its declaration.
#pragma once

#include <cstdlib>
#include <cstring>
#include <new>

#include "kvalo/shared_vector.h"

namespace mirn3 {

inline void shared_vector<double>::adopt(uint64_t n, double* buffer, mem::Content content) {
  using Origin = mem::BufferDeleter::Origin;
  mem::BufferDeleter deleter{.n = n, .room = n, .origin = buffer == nullptr ? Origin::pool : Origin::heap};
  try {
    if (n >= (uint64_t{1} << 61)) throw std::bad_alloc();
    mem::reserve(n * sizeof(double));
  } catch (...) {
    if (buffer != nullptr) std::free(buffer);
    throw;
  }
  if (buffer == nullptr) {
    try {
      buffer = mem::allocate_samples(n, content);
    } catch (...) {
      mem::release(n * sizeof(double));
      throw;
    }
  }
  // If making the reference count fails, the deleter runs: buffer and charge are given back.
  owner_ = std::shared_ptr<double>(buffer, deleter);
  data_ = buffer;
  capacity_ = n;
}

inline void shared_vector<double>::trim(uint64_t n) noexcept {
  auto* kept = deleter();
  if (kept == nullptr || n >= capacity_) return;
  kept->n -= capacity_ - n;
  mem::release((capacity_ - n) * sizeof(double));
  capacity_ = n;
}

inline shared_vector<double> shared_vector<double>::clone() const {
  shared_vector copy;
  copy.resize_for_overwrite(size_);
  if (size_ != 0) std::memcpy(copy.data_, data_, size_ * sizeof(double));
  return copy;
}

}  // namespace mirn3
