// Merges the time stamps of two series.
#include "runtime/num_merge.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>
#include <vector>

#include "runtime/par.h"

namespace mirn3::num {

namespace {

using Axis = std::span<const double>;

constexpr size_t least_share = size_t{1} << 16;  // elements that are worth a thread

// Whether `holds(first, last)` is true of every stretch of 0..n; stretches overlap by one element when
// neighbours are compared.
template <typename Test>
bool everywhere(size_t n, Test holds) {
  constexpr size_t stretch = size_t{1} << 14;
  std::atomic<bool> result = true;
  par::ranges(n, least_share, [&](size_t first, size_t last) {
    for (size_t at = first; at < last && result.load(std::memory_order_relaxed); at += stretch) {
      if (!holds(at, std::min(at + stretch, last))) result.store(false, std::memory_order_relaxed);
    }
  });
  return result;
}

template <typename InOrder>
bool neighbours(Axis t, InOrder in_order) {
  if (t.empty()) return true;
  return t[0] == t[0] && everywhere(t.size() - 1, [&](size_t first, size_t last) {
           unsigned ordered = 1;
           for (size_t i = first; i < last; ++i) ordered &= in_order(t[i], t[i + 1]) ? 1 : 0;
           return ordered != 0;
         });
}

// The stamps without NaN and duplicates, ascending: themselves when they are so already.
Axis in_order(Axis t, std::vector<double>& kept) {
  if (is_strictly_ascending(t)) return t;
  kept.assign(t.begin(), t.end());
  std::erase_if(kept, [](double stamp) { return stamp != stamp; });
  if (!std::ranges::is_sorted(kept)) std::ranges::stable_sort(kept);
  kept.erase(std::unique(kept.begin(), kept.end()), kept.end());
  return kept;
}

// How many stamps both have.
size_t common(Axis a, Axis b) {
  size_t count = 0;
  size_t i = 0;
  size_t j = 0;
  while (i < a.size() && j < b.size()) {
    const double x = a[i];
    const double y = b[j];
    count += x == y ? 1 : 0;
    i += x <= y ? 1 : 0;
    j += y <= x ? 1 : 0;
  }
  return count;
}

void write(Axis a, Axis b, double* out) {
  size_t i = 0;
  size_t j = 0;
  while (i < a.size() && j < b.size()) {
    const double x = a[i];
    const double y = b[j];
    *out++ = y < x ? y : x;
    i += x <= y ? 1 : 0;
    j += y <= x ? 1 : 0;
  }
  if (i < a.size()) std::memcpy(out, a.data() + i, (a.size() - i) * sizeof(double));
  if (j < b.size()) std::memcpy(out, b.data() + j, (b.size() - j) * sizeof(double));
}

}  // namespace

bool is_strictly_ascending(Axis t) {
  return neighbours(t, [](double before, double after) { return before < after; });
}

bool is_ascending(Axis t) {
  return neighbours(t, [](double before, double after) { return before <= after; });
}

bool is_same(Axis t1, Axis t2) {
  if (t1.size() != t2.size()) return false;
  if (t1.data() == t2.data()) return true;
  return everywhere(t1.size(), [&](size_t first, size_t last) {
    return std::memcmp(t1.data() + first, t2.data() + first, (last - first) * sizeof(double)) == 0;
  });
}

std::vector<MergeShare> merge_shares(Axis a, Axis b, size_t parts) {
  const size_t total = a.size() + b.size();
  parts = std::clamp<size_t>(total / least_share, 1, parts);
  std::vector<MergeShare> shares;
  MergeShare share{};
  for (size_t part = 1; part <= parts; ++part) {
    share.last1 = a.size();
    share.last2 = b.size();
    if (part < parts) {
      // The least i for which the first i of a and the first target - i of b are the smallest `target`.
      const size_t target = total / parts * part;
      size_t low = target > b.size() ? target - b.size() : 0;
      size_t high = std::min(target, a.size());
      while (low < high) {
        const size_t i = low + (high - low) / 2;
        if (a[i] < b[target - i - 1]) {
          low = i + 1;
        } else {
          high = i;
        }
      }
      share.last1 = low;
      share.last2 = target - low;
      // A stamp that would end b's part here and begin a's part of the next share stays in this one.
      if (low < a.size() && share.last2 > 0 && a[low] == b[share.last2 - 1]) ++share.last1;
    }
    shares.push_back(share);
    share.first1 = share.last1;
    share.first2 = share.last2;
  }
  return shares;
}

shared_vector<double> merge(const double* t1, const double* t2, size_t count1, size_t count2) {
  std::vector<double> sorted1;
  std::vector<double> sorted2;
  const Axis a = in_order({t1, count1}, sorted1);
  const Axis b = in_order({t2, count2}, sorted2);
  const std::vector<MergeShare> shares = merge_shares(a, b, par::workers());
  const auto part_of = [&](Axis t, size_t first, size_t last) { return t.subspan(first, last - first); };
  std::vector<size_t> begins(shares.size());
  par::run(shares.size(), [&](size_t k) {
    const auto& [first1, last1, first2, last2] = shares[k];
    begins[k] =
        last1 - first1 + last2 - first2 - common(part_of(a, first1, last1), part_of(b, first2, last2));
  });
  size_t size = 0;
  for (size_t& begin : begins) size += std::exchange(begin, size);
  shared_vector<double> merged;
  merged.resize_for_overwrite(size);
  par::run(shares.size(), [&](size_t k) {
    const auto& [first1, last1, first2, last2] = shares[k];
    write(part_of(a, first1, last1), part_of(b, first2, last2), merged.data() + begins[k]);
  });
  return merged;
}

}  // namespace mirn3::num
