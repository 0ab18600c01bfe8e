// mirn3::shared_vector<double>: samples as a host is handed them: their layout, and read access.
//
// Copies share one buffer, which is counted by reference and freed with its last holder. A share is a
// snapshot: later writes to the series go to a copy, so a host may keep its share and read it
// on any thread for as long as it likes. Kept samples count against the memory budget of the process.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace mirn3 {

template <typename T>
class shared_vector;

template <>
class shared_vector<double> {
 public:
  shared_vector() = default;
  shared_vector(const shared_vector&) = default;
  shared_vector& operator=(const shared_vector&) = default;
  shared_vector(shared_vector&& other) noexcept { swap(other); }
  shared_vector& operator=(shared_vector&& other) noexcept {
    shared_vector taken(std::move(other));
    swap(taken);
    return *this;
  }

  const double* data() const noexcept { return data_; }
  uint64_t size() const noexcept { return size_; }
  uint64_t capacity() const noexcept { return capacity_; }
  bool empty() const noexcept { return size_ == 0; }
  double operator[](uint64_t i) const noexcept { return data_[i]; }
  std::span<const double> span() const noexcept { return {data_, size_}; }
  const double* begin() const noexcept { return data_; }
  const double* end() const noexcept { return data_ + size_; }

  // How many holders share the buffer; 0 without one.
  long holders() const noexcept { return owner_.use_count(); }

  void swap(shared_vector& other) noexcept {
    owner_.swap(other.owner_);
    std::swap(data_, other.data_);
    std::swap(capacity_, other.capacity_);
    std::swap(size_, other.size_);
  }

 protected:
  // Hosts see these four: their order and types are fixed.
  std::shared_ptr<double> owner_;
  double* data_ = nullptr;
  uint64_t capacity_ = 0;
  uint64_t size_ = 0;
};
static_assert(sizeof(shared_vector<double>) == 40);

}  // namespace mirn3
