// Keeps signals of every sample, one column each.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace plexo {

// Numbers from malloc, charged to the memory budget for as long as they are here.
class Column {
 public:
  explicit Column(uint64_t room);  // throws std::bad_alloc
  ~Column();
  Column(Column&& other) noexcept;
  Column& operator=(Column&&) = delete;

  double* data() const noexcept { return data_; }
  void shrink(uint64_t room) noexcept;
  // Gives the memory and the charge up to the caller, who frees it.
  double* release() noexcept;

 private:
  uint64_t room_;
  double* data_;
};

class Recorder {
 public:
  // Throws std::bad_alloc.
  Recorder(std::vector<uint32_t> signals, uint64_t samples);

  // Takes the signals of the next sample.
  void take(const double* signals) noexcept {
    double* row = &rows_[waiting_ * width_];
    for (size_t i = 0; i < width_; ++i) row[i] = signals[signals_[i]];
    if (++waiting_ == block) flush();
  }
  // Ends the recording: columns() hold samples() numbers each.
  void finish() noexcept;

  uint64_t samples() const noexcept { return done_; }
  std::vector<Column>& columns() noexcept { return columns_; }

 private:
  void flush() noexcept;

  // Samples are gathered in rows first: writing to many columns at once would miss the caches every time.
  static constexpr size_t block = 32;

  std::vector<uint32_t> signals_;
  size_t width_;
  std::vector<Column> columns_;
  std::vector<double> rows_;
  size_t waiting_ = 0;
  uint64_t done_ = 0;
};

}  // namespace plexo
