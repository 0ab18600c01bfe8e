// A column: one axis of samples, as everything that shows the same axis sees it.
//
// A series record, the script objects that show it, and Arrays made from one another hold one Column, so
// what is written through one shows in all. Different columns may share a buffer: a result on its operand's
// time stamps, the time axis of every variable of a table, the vector that a reader keeps, the record of a
// chart. Whoever writes first gets a buffer of its own; all others keep the samples they have.
//
// The one exception is a writable view of a script (memoryview, NumPy): it pins the buffer, so a column with
// an open view is written in place, and its samples are copied when somebody else wants to share them.
//
// Columns are used under the interpreter lock. The functions that copy throw std::bad_alloc and then
// change nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "kvalo/shared_vector.h"

namespace mirn2 {

using Samples = mirn3::shared_vector<double>;

class Column {
 public:
  Column() = default;
  explicit Column(Samples samples) noexcept : samples_(std::move(samples)) {}
  Column(const Column&) = delete;
  Column& operator=(const Column&) = delete;

  uint64_t size() const noexcept { return samples_.size(); }
  bool empty() const noexcept { return samples_.empty(); }
  uint64_t capacity() const noexcept { return samples_.capacity(); }
  double operator[](uint64_t i) const noexcept { return samples_[i]; }
  std::span<const double> values() const noexcept { return samples_.span(); }

  // A share for a computation, which may go on without the interpreter lock: later writes to the column do
  // not change it, only an open view can.
  const Samples& hold() const noexcept { return samples_; }

  // A share for another column or for a host: nothing changes it.
  Samples snapshot() const { return samples_.snapshot(); }

  // Whether a change makes the samples differ from what loading them again would give.
  enum class Change : uint8_t { modifies, repeated_by_loading };

  // The samples, to be changed in place.
  std::span<double> write(Change what = Change::modifies);

  // In place of the values, as many computed ones; views see them.
  void overwrite(Samples values) noexcept;

  // Other samples, of any number; views keep what they see.
  void replace(Samples samples, Change what) noexcept;

  // Opens a writable view of the samples; the share it returns keeps them alive. close_view() takes it back.
  Samples open_view();
  static void close_view(Samples& view) noexcept { view.close_view(); }
  bool is_viewed() const noexcept { return samples_.is_viewed(); }

  // Whether the samples may differ from what the source would give again. Looks at all samples if a view was
  // opened, and remembers a yes.
  bool is_modified() const noexcept;

 private:
  Samples samples_;
  mutable bool modified_ = false;
  bool watched_ = false;  // handed out in a view: `seen_` tells whether it was written
  uint64_t seen_ = 0;     // digest of the first `seen_size_` samples when the first view was opened
  uint64_t seen_size_ = 0;
};

using ColumnPtr = std::shared_ptr<Column>;

inline ColumnPtr make_column(Samples samples) { return std::make_shared<Column>(std::move(samples)); }

}  // namespace mirn2
