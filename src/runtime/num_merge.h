// The common time base of two series.
#pragma once

#include <cstddef>
#include <span>

#include "kvalo/export.h"
#include "kvalo/shared_vector.h"

namespace mirn3::num {

// Every stamp of t1 and of t2 once, ascending: the sorted union without duplicates. NaN stamps are left
// out; of 0.0 and -0.0 the one of t1 stays, or the first one. Linear when both are ascending, else sorted
// copies are made first. Works on all cores. Throws std::bad_alloc.
MIRN3_API shared_vector<double> merge(const double* t1, const double* t2, size_t count1, size_t count2);

// Whether every stamp is greater than the one before, or at least not less; false with a NaN, true for
// none. On all cores.
MIRN3_API bool is_strictly_ascending(std::span<const double> t);
MIRN3_API bool is_ascending(std::span<const double> t);

// Whether both hold the same bits.
MIRN3_API bool is_same(std::span<const double> t1, std::span<const double> t2);

}  // namespace mirn3::num
