// The common time base of two series.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "kvalo/export.h"
#include "kvalo/shared_vector.h"

namespace mirn3::num {

// Every stamp of t1 and of t2 once, ascending: the sorted union without duplicates. NaN stamps are left
// out; of 0.0 and -0.0 the one of t1 is kept, or the first one. Linear when both are ascending, else sorted
// copies are made first. Works on all cores. Throws std::bad_alloc.
MIRN3_API shared_vector<double> merge(const double* t1, const double* t2, size_t count1, size_t count2);

// One share of the merge of two strictly ascending vectors: t1[first1..last1) and t2[first2..last2). The
// shares follow one another, and a stamp that both vectors have is never split between two of them.
struct MergeShare {
  size_t first1, last1;
  size_t first2, last2;
};

// Cuts the merge into at most `parts` shares of about equal length; fewer when it is short.
MIRN3_API std::vector<MergeShare> merge_shares(std::span<const double> t1, std::span<const double> t2,
                                               size_t parts);

// Whether every stamp is greater than the one before, or at least not less; false with a NaN, true for
// none. On all cores.
MIRN3_API bool is_strictly_ascending(std::span<const double> t);
MIRN3_API bool is_ascending(std::span<const double> t);

// Whether both hold the same bits.
MIRN3_API bool is_same(std::span<const double> t1, std::span<const double> t2);

}  // namespace mirn3::num
