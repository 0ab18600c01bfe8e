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

// One thread's share of a merge. Equal stamps are never in two shares.
struct Share {
  Axis a, b;
  size_t out = 0;  // where its stamps begin in the result
};

// Cuts the merge into shares of about equal length.
std::vector<Share> shares(Axis a, Axis b) {
  const size_t total = a.size() + b.size();
  const size_t parts = std::clamp<size_t>(total / least_share, 1, par::workers());
  std::vector<Share> result;
  size_t a_first = 0;
  size_t b_first = 0;
  for (size_t part = 1; part <= parts; ++part) {
    size_t a_last = a.size();
    size_t b_last = b.size();
    if (part < parts) {
      // The least i for which the first i of a and the first target - i of b hold the smallest `target`.
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
      a_last = low;
      b_last = target - low;
      // A stamp that is the last of b here and the first of a in the next share stays in this one.
      if (a_last < a.size() && b_last > 0 && a[a_last] == b[b_last - 1]) ++a_last;
      a_last = std::max(a_last, a_first);
      b_last = std::max(b_last, b_first);
    }
    result.push_back({a.subspan(a_first, a_last - a_first), b.subspan(b_first, b_last - b_first)});
    a_first = a_last;
    b_first = b_last;
  }
  return result;
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

void write(const Share& share, double* out) {
  const Axis a = share.a;
  const Axis b = share.b;
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

shared_vector<double> merge(const double* t1, const double* t2, size_t count1, size_t count2) {
  std::vector<double> sorted1;
  std::vector<double> sorted2;
  const Axis a = in_order({t1, count1}, sorted1);
  const Axis b = in_order({t2, count2}, sorted2);
  std::vector<Share> parts = shares(a, b);
  par::run(parts.size(), [&](size_t part) {
    Share& share = parts[part];
    share.out = share.a.size() + share.b.size() - common(share.a, share.b);
  });
  size_t size = 0;
  for (Share& share : parts) size += std::exchange(share.out, size);
  shared_vector<double> merged;
  merged.resize_for_overwrite(size);
  par::run(parts.size(), [&](size_t part) { write(parts[part], merged.data() + parts[part].out); });
  return merged;
}

}  // namespace mirn3::num
