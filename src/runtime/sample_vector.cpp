// How sample buffers are made, charged and given back.
#include "runtime/sample_vector.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace mirn3 {

void sample_vector::adopt(uint64_t n, double* buffer, mem::Content content) {
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

void sample_vector::trim(uint64_t n) noexcept {
  auto* kept = deleter();
  if (kept == nullptr || n >= capacity_) return;
  kept->n -= capacity_ - n;
  mem::release((capacity_ - n) * sizeof(double));
  capacity_ = n;
}

sample_vector sample_vector::clone() const {
  sample_vector copy;
  copy.resize_for_overwrite(size_);
  if (size_ != 0) std::memcpy(copy.data_, data_, size_ * sizeof(double));
  return copy;
}

}  // namespace mirn3
