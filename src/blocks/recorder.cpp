#include "blocks/recorder.h"

#include <algorithm>
#include <new>
#include <utility>

#include "runtime/mem.h"

namespace plexo {

Column::Column(uint64_t room)
    : room_(room), data_(static_cast<double*>(std::malloc(std::max<uint64_t>(room, 1) * sizeof(double)))) {
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
  for (size_t column = 0; column < width_; ++column) {
    double* to = columns_[column].data() + done_;
    for (size_t row = 0; row < waiting_; ++row) to[row] = rows_[row * width_ + column];
  }
  done_ += waiting_;
  waiting_ = 0;
}

void Recorder::finish() noexcept {
  flush();
  for (Column& column : columns_) column.shrink(done_);
}

}  // namespace plexo
