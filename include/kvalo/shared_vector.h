// mirn3::shared_vector<double>: the one container that holds samples.
//
// A growable array of doubles whose buffer is counted by reference, so that a reader, a series, its
// results and a chart record of a host show the very same samples. Whoever is about to write makes the
// buffer its own first (make_unique), so every other holder keeps the samples it was given: to them a
// share is a snapshot, which any thread may read for as long as it holds it. Every buffer is charged to
// the memory budget (mirn3::mem) when it is made and given back once, when its last holder drops it.
//
// Growing never keeps the old content: whoever grows a vector refills it. Counting references is
// thread safe. What the buffer knows besides (views, order) belongs to the interpreter lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "kvalo/export.h"

namespace mirn3 {

namespace mem {

// Charges `bytes` to the budget; may call callback_reserve to make room first. Never refuses.
MIRN3_API void reserve(size_t bytes);
// Gives `bytes` back.
MIRN3_API void release(size_t bytes) noexcept;

// What a new buffer holds.
enum class Content : uint8_t { any, zeros };

// Memory for `n` doubles, aligned for vector instructions. Not charged.
// Throws std::bad_alloc, also for n >= 2^61.
MIRN3_API double* allocate_samples(size_t n, Content content);
// Frees what allocate_samples(n) returned.
MIRN3_API void free_samples(double* buffer, size_t n) noexcept;

// Owns the charge and the memory of one buffer, and knows what its holders must agree on.
struct MIRN3_API BufferDeleter {
  enum class Origin : uint8_t { pool, heap };

  size_t n = 0;                  // elements charged
  size_t room = 0;               // elements the buffer was made for
  Origin origin = Origin::pool;  // allocate_samples, or malloc by whoever handed it over
  uint32_t views = 0;            // writable views of scripts (memoryview, NumPy) that are open now

  // The elements that are known to ascend strictly; empty when nothing is known.
  const double* ascending_begin = nullptr;
  const double* ascending_end = nullptr;

  void operator()(double* buffer) const noexcept;
};

}  // namespace mem

template <typename T>
class shared_vector;

template <>
class shared_vector<double> {
 public:
  shared_vector() = default;

  // Copies share the buffer.
  shared_vector(const shared_vector&) = default;
  shared_vector& operator=(const shared_vector&) = default;
  shared_vector(shared_vector&& other) noexcept { swap(other); }
  shared_vector& operator=(shared_vector&& other) noexcept {
    if (this != &other) {
      reset();
      swap(other);
    }
    return *this;
  }

  // Makes room for n elements. A new buffer holds anything, not the old content; size stays.
  void reserve(uint64_t n) {
    if (capacity_ < n) adopt(n, nullptr, mem::Content::any);
  }

  // Sets the size. Past the capacity: n zeros in a new buffer. Within it: nothing is touched.
  void resize(uint64_t n) {
    if (capacity_ < n) adopt(n, nullptr, mem::Content::zeros);
    size_ = n;
  }

  // Sets the size for a caller that fills all of it: a new buffer holds anything.
  void resize_for_overwrite(uint64_t n) {
    reserve(n);
    size_ = n;
  }

  // Lowers the capacity of a vector that nobody shares to n, at least the size, and gives the charge of the
  // rest back. The rest stays with the buffer; what was never written of it takes no memory.
  void trim(uint64_t n) noexcept;

  // Takes over a malloc'ed buffer of n doubles without copying.
  void assign_move(uint64_t n, double* buffer) {
    adopt(n, buffer, mem::Content::any);
    size_ = n;
  }

  // Drops this holder's share of the buffer.
  void reset() noexcept {
    owner_.reset();
    data_ = nullptr;
    capacity_ = 0;
    size_ = 0;
  }

  // A vector of its own with the same samples; capacity = size.
  shared_vector clone() const;

  // Goes on without the first n elements, in the same buffer: n is at most the size.
  void remove_prefix(uint64_t n) noexcept {
    data_ += n;
    capacity_ -= n;
    size_ -= n;
  }

  // Appends without looking at the capacity: for readers that reserved for every row.
  void append_unchecked(double value) noexcept { data_[size_++] = value; }

  double* data() noexcept { return data_; }
  const double* data() const noexcept { return data_; }
  uint64_t size() const noexcept { return size_; }
  uint64_t capacity() const noexcept { return capacity_; }
  bool empty() const noexcept { return size_ == 0; }
  double& operator[](uint64_t i) noexcept { return data_[i]; }
  double operator[](uint64_t i) const noexcept { return data_[i]; }
  std::span<double> span() noexcept { return {data_, size_}; }
  std::span<const double> span() const noexcept { return {data_, size_}; }
  const double* begin() const noexcept { return data_; }
  const double* end() const noexcept { return data_ + size_; }

  // How many holders share the buffer; 0 without one.
  long holders() const noexcept { return owner_.use_count(); }

  // Whether nobody else holds the buffer. What former holders on other threads read happened before.
  bool is_unique() const noexcept {
    // The count is read relaxed; taking and dropping a share orders this thread after the last release.
    if (owner_.use_count() != 1) return owner_ == nullptr;
    const std::shared_ptr<double> ordered = owner_;
    return true;
  }

  // Before these samples are written: a buffer that others hold is left to them, and this vector goes on
  // with a copy. Throws std::bad_alloc with nothing changed.
  void make_unique() {
    if (!is_unique()) *this = clone();
    forget_order();
  }

  // Open views keep a buffer where it is, and whoever has one may write at any time; so a share of a
  // viewed buffer is no snapshot.
  bool is_viewed() const noexcept {
    const auto* kept = deleter();
    return kept != nullptr && kept->views != 0;
  }
  void open_view() noexcept {
    if (auto* kept = deleter()) ++kept->views;
    forget_order();
  }
  void close_view() noexcept {
    if (auto* kept = deleter()) --kept->views;
  }

  // These samples, for a holder that they must not change under: shared, or copied while a view is open.
  shared_vector snapshot() const { return is_viewed() ? clone() : *this; }

  // What was found out about the order of the samples is kept with the buffer, so that computations that
  // share one time vector look at it once. Writing through make_unique() or a view forgets it.
  bool is_known_ascending() const noexcept {
    const auto* kept = deleter();
    return kept != nullptr && kept->ascending_begin <= data_ && data_ + size_ <= kept->ascending_end;
  }
  void remember_ascending() const noexcept {
    auto* kept = deleter();
    if (kept == nullptr || kept->views != 0) return;
    kept->ascending_begin = data_;
    kept->ascending_end = data_ + size_;
  }

  void swap(shared_vector& other) noexcept {
    owner_.swap(other.owner_);
    std::swap(data_, other.data_);
    std::swap(capacity_, other.capacity_);
    std::swap(size_, other.size_);
  }

 private:
  // Charges n elements, makes a buffer or takes the given one, and drops the old. A failure gives the charge
  // back, frees a buffer that was handed over, and leaves the vector as it was.
  void adopt(uint64_t n, double* buffer, mem::Content content);

  void forget_order() noexcept {
    if (auto* kept = deleter()) kept->ascending_end = nullptr;
  }

  mem::BufferDeleter* deleter() const noexcept { return std::get_deleter<mem::BufferDeleter>(owner_); }

  // Hosts read these four: their order and types are fixed.
  std::shared_ptr<double> owner_;
  double* data_ = nullptr;
  uint64_t capacity_ = 0;
  uint64_t size_ = 0;
};

}  // namespace mirn3

#include "kvalo/shared_vector-inl.h"
