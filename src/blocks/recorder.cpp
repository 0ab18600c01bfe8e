// Keeps the logged signals of a run within the memory budget.
#include "blocks/recorder.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>
#include <utility>

#include "runtime/mem.h"

namespace plexo {

namespace {

// Big columns lie on huge pages, whose first use costs a fraction.
constexpr size_t huge_page = size_t{2} << 20;

double* allocate(size_t bytes) {
  if (bytes < 2 * huge_page) return static_cast<double*>(std::malloc(std::max<size_t>(bytes, 1)));
  const size_t whole = (bytes + huge_page - 1) / huge_page * huge_page;
  void* memory = std::aligned_alloc(huge_page, whole);
  if (memory != nullptr)
    ::madvise(memory, whole, MADV_HUGEPAGE);  // a hint; without it nothing is lost but time
  return static_cast<double*>(memory);
}

}  // namespace

Column::Column(uint64_t room) : room_(room), data_(allocate(room * sizeof(double))) {
  if (data_ == nullptr) throw std::bad_alloc();
  try {
    mirn3::mem::reserve(room_ * sizeof(double));
  } catch (...) {
    std::free(data_);
    throw;
  }
}

Column::~Column() {
  if (data_ != nullptr) std::free(release());
}

Column::Column(Column&& other) noexcept : room_(other.room_), data_(std::exchange(other.data_, nullptr)) {}

void Column::shrink(uint64_t room) noexcept {
  if (room == room_) return;
  void* smaller = std::realloc(data_, std::max<uint64_t>(room, 1) * sizeof(double));
  if (smaller == nullptr) return;
  data_ = static_cast<double*>(smaller);
  mirn3::mem::release((room_ - room) * sizeof(double));
  room_ = room;
}

double* Column::release() noexcept {
  mirn3::mem::release(room_ * sizeof(double));
  return std::exchange(data_, nullptr);
}

Recorder::Recorder(std::vector<uint32_t> signals, uint64_t samples)
    : signals_(std::move(signals)), width_(signals_.size()), rows_(block * width_ + 1) {
  for (size_t i = 0; i < width_; ++i) columns_.emplace_back(samples);
}

void Recorder::flush() noexcept {
  // Eight columns at a time: the numbers of a row that share a cache line.
  constexpr size_t group = 8;
  for (size_t first = 0; first < width_; first += group) {
    const size_t count = std::min(group, width_ - first);
    double* to[group];
    for (size_t i = 0; i < count; ++i) to[i] = columns_[first + i].data() + done_;
    for (size_t row = 0; row < waiting_; ++row) {
      const double* from = &rows_[row * width_ + first];
      for (size_t i = 0; i < count; ++i) to[i][row] = from[i];
    }
  }
  done_ += waiting_;
  waiting_ = 0;
}

void Recorder::finish() noexcept {
  flush();
  for (Column& column : columns_) column.shrink(done_);
}

}  // namespace plexo
