// How a column takes a buffer of its own before it is written, and knows that it was.
#include "objects/column.h"

#include <algorithm>
#include <utility>

#include "kernels/digest.h"

namespace mirn2 {

std::span<double> Column::write(Change what) {
  if (!samples_.is_viewed()) samples_.make_unique();
  if (what == Change::modifies) modified_ = true;
  return samples_.span();
}

void Column::overwrite(Samples values) noexcept {
  if (samples_.is_viewed() && values.size() == samples_.size()) {
    std::ranges::copy(std::as_const(values).span(), samples_.data());
    modified_ = true;
  } else {
    replace(std::move(values), Change::modifies);
  }
}

void Column::replace(Samples samples, Change what) noexcept {
  samples_ = std::move(samples);
  modified_ = what == Change::modifies;
  watched_ = false;
}

Samples Column::open_view() {
  if (!samples_.is_viewed()) samples_.make_unique();
  if (!watched_ && !modified_) {
    seen_ = kernels::digest(samples_.span());
    seen_size_ = samples_.size();
    watched_ = true;
  }
  samples_.open_view();
  return samples_;
}

bool Column::is_modified() const noexcept {
  if (!modified_ && watched_) modified_ = kernels::digest(samples_.span().first(seen_size_)) != seen_;
  return modified_;
}

}  // namespace mirn2
