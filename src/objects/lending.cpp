// Lets two Arrays share one buffer until one of them is written to.
#include "objects/lending.h"

#include <algorithm>
#include <unordered_map>

#include "objects/time_series.h"

namespace mirn2 {

namespace {

// Below this many samples a copy is cheaper than keeping books.
constexpr uint64_t least_lent = 4096;

using Loans = std::unordered_multimap<const double*, ArrayObject*>;

// Who borrows which buffer. Never destroyed: Arrays may outlive the statics of this library.
Loans& loans() {
  static Loans* all = new Loans;
  return *all;
}

Loans::iterator loan_of(const ArrayObject* array) {
  const auto [first, last] = loans().equal_range(array->data.data());
  return std::find_if(first, last, [array](const auto& loan) { return loan.second == array; });
}

}  // namespace

Ref lend(PyObject* lender) {
  ArrayObject* from = as_array(lender);
  const Samples& samples = from->data;
  if (samples.is_common()) return make_array(samples);
  if (samples.size() < least_lent || samples.is_watched()) return make_array(samples.clone());
  Ref borrower = make_array(samples);
  ArrayObject* to = as_array(borrower.get());
  loans().emplace(samples.data(), to);
  to->borrows = true;
  return borrower;
}

void return_loan(ArrayObject* array) noexcept {
  if (const auto record = array->times_of.lock()) std::erase(record->times_shown_by, array);
  array->times_of.reset();
  if (!array->borrows) return;
  loans().erase(loan_of(array));
  array->borrows = false;
}

void replace_samples(ArrayObject* array, Samples samples) noexcept {
  return_loan(array);
  array->data = std::move(samples);
}

Ref make_time_array(const std::shared_ptr<TimeSeries>& record) {
  Ref array = make_array({});
  show_times(as_array(array.get()), record);
  return array;
}

void show_times(ArrayObject* array, const std::shared_ptr<TimeSeries>& record) {
  const bool is_common = record->x.is_common();
  if (is_common) record->times_shown_by.reserve(record->times_shown_by.size() + 1);
  replace_samples(array, record->x);
  if (!is_common) return;
  record->times_shown_by.push_back(array);
  array->times_of = record;
}

void own_times(TimeSeries& record) {
  if (!record.x.is_common()) return;
  // The copy may have to make room, but not here.
  const InUse held(std::shared_ptr<TimeSeries>(std::shared_ptr<void>(), &record));
  record.x.own();
  for (ArrayObject* array : record.times_shown_by) array->data = record.x;
  part_with_times(record);
}

void part_with_times(TimeSeries& record) noexcept {
  for (ArrayObject* array : std::exchange(record.times_shown_by, {})) array->times_of.reset();
}

namespace {

void own_samples(ArrayObject* array) {
  if (const auto record = array->times_of.lock()) own_times(*record);
  if (array->data.is_common()) replace_samples(array, array->data.clone());
}

}  // namespace

void stop_borrowing(ArrayObject* array) {
  if (array->data.is_common()) return own_samples(array);
  if (!array->borrows) return;
  const bool sole_holder = array->data.holders() == 1;
  Samples own = sole_holder ? array->data : array->data.clone();
  replace_samples(array, std::move(own));
}

void prepare_write(const Samples& samples) {
  const double* buffer = samples.data();
  for (auto loan = loans().find(buffer); loan != loans().end(); loan = loans().find(buffer)) {
    ArrayObject* borrower = loan->second;
    replace_samples(borrower, borrower->data.clone());
  }
}

void prepare_write(ArrayObject* array) {
  if (array->borrows || array->data.is_common()) {
    stop_borrowing(array);
  } else {
    prepare_write(array->data);
  }
}

}  // namespace mirn2
