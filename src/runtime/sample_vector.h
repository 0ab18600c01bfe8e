// mirn3::sample_vector: a growable shared_vector<double>, the one container that the program keeps samples
// in.
//
// A reader, a series, its results and a chart record of a host share a buffer. Whoever is about to write
// makes the buffer its own first (make_unique), so every other holder keeps the samples it was given. Every
// buffer is charged to the memory budget (mirn3::mem) when it is made, and the charge is given back once,
// with the buffer.
//
// Growing never keeps the old content: the caller that grows a vector refills it. Counting references is
// thread safe. What the buffer knows besides (views, order) belongs to the interpreter lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "kvalo/export.h"
#include "kvalo/shared_vector.h"

namespace mirn3 {

namespace mem {

// Charges `bytes` to the budget; may call callback_reserve to make room first. Never refuses.
MIRN3_API void reserve(size_t bytes);
// Gives `bytes` back.
MIRN3_API void release(size_t bytes) noexcept;

// What a new buffer holds.
enum class Content : uint8_t { any, zeros };

// Memory for `n` doubles, aligned for vector instructions. Not charged.
// Throws std::bad_alloc, also for n >= 2^60.
MIRN3_API double* allocate_samples(size_t n, Content content);
// Frees what allocate_samples(n) returned.
MIRN3_API void free_samples(double* buffer, size_t n) noexcept;

// Owns the charge and the memory of one buffer, and knows what its holders must agree on.
struct MIRN3_API BufferDeleter {
  enum class Origin : uint8_t { pool, heap };

  size_t n = 0;                  // elements charged
  size_t room = 0;               // elements the buffer was made for
  Origin origin = Origin::pool;  // allocate_samples, or malloc by the one who handed it over
  uint32_t views = 0;            // writable views of scripts (memoryview, NumPy) that are open now

  // The elements that are known to ascend strictly; empty when nothing is known.
  const double* ascending_begin = nullptr;
  const double* ascending_end = nullptr;

  void operator()(double* buffer) const noexcept;
};

}  // namespace mem

class MIRN3_API sample_vector : public shared_vector<double> {
 public:
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
  void reset() noexcept { sample_vector().swap(*this); }

  // A vector of its own with the same samples; capacity = size.
  sample_vector clone() const;

  // Goes on without the first n elements, in the same buffer: n is at most the size.
  void remove_prefix(uint64_t n) noexcept {
    data_ += n;
    capacity_ -= n;
    size_ -= n;
  }

  // Appends without looking at the capacity: for readers that reserved for every row.
  void append_unchecked(double value) noexcept { data_[size_++] = value; }

  using shared_vector::data;
  using shared_vector::operator[];
  using shared_vector::span;
  double* data() noexcept { return data_; }
  double& operator[](uint64_t i) noexcept { return data_[i]; }
  std::span<double> span() noexcept { return {data_, size_}; }

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

  // Open views keep a buffer where it is, and its owner may write at any time; so a share of a
  // viewed buffer is not a snapshot.
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
  sample_vector snapshot() const { return is_viewed() ? clone() : *this; }

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

 private:
  // Charges n elements, makes a buffer or takes the given one, and drops the old. A failure gives the charge
  // back, frees a buffer that was handed over, and leaves the vector as it was.
  void adopt(uint64_t n, double* buffer, mem::Content content);

  void forget_order() noexcept {
    if (auto* kept = deleter()) kept->ascending_end = nullptr;
  }

  mem::BufferDeleter* deleter() const noexcept { return std::get_deleter<mem::BufferDeleter>(owner_); }
};
// Records of hosts are filled by slicing.
static_assert(sizeof(sample_vector) == sizeof(shared_vector<double>));

}  // namespace mirn3
