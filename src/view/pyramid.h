// Minima and maxima of ever larger blocks of samples, so that the extremes of any range are found at once.
//
// Blocks of 64 samples at the base, then four blocks of one level under one block of the next. Extremes are
// those of finite values; what is not finite leaves a mark. 0.354 bytes a sample, 2.2 % of time and value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace kvalo_view {

// What a range holds besides finite values.
enum Mark : uint8_t { mark_empty = 1, mark_nan = 2, mark_up = 4, mark_down = 8 };

struct Extremes {
  double lo = std::numeric_limits<double>::infinity();
  double hi = -std::numeric_limits<double>::infinity();
  uint8_t marks = 0;

  bool empty() const { return lo > hi; }  // no finite value
  void add(double value);
  void add(const Extremes& other);
};

class Pyramid {
 public:
  static constexpr size_t base = 64;
  static constexpr size_t fan_out = 4;

  Pyramid() = default;
  // One pass over the values and as many time stamps, on all cores. Both stay the caller's and must outlive
  // the calls of range().
  Pyramid(std::span<const double> x, std::span<const double> y) : Pyramid(x, y, Pyramid()) {}
  // The same where `head` is the pyramid of samples that x and y begin with: only what is new is looked at.
  Pyramid(std::span<const double> x, std::span<const double> y, const Pyramid& head);

  // The extremes of y[first] ... y[last - 1].
  Extremes range(size_t first, size_t last) const;
  Extremes whole() const { return range(0, y_.size()); }

  // Whether no time stamp is less than the one before it, and none is NaN.
  bool ascends() const { return ascends_; }

  size_t memory() const;  // bytes

 private:
  struct Level {
    struct Ends {
      double lo, hi;
    };
    std::vector<Ends> ends;
    std::vector<uint8_t> marks;

    void resize(size_t blocks);
    size_t size() const { return marks.size(); }
    Extremes at(size_t block) const { return {ends[block].lo, ends[block].hi, marks[block]}; }
    void set(size_t block, const Extremes& value);
  };

  Extremes samples(size_t first, size_t last) const;

  std::span<const double> y_;
  std::vector<Level> levels_;
  bool ascends_ = true;
};

// The first index in [0, x.size()] whose stamp is not less than t, sought from `hint` on in growing steps:
// fast where the hint is close. Stamps ascend.
size_t lower_index(std::span<const double> x, double t, size_t hint);
// The same for stamps greater than t.
size_t upper_index(std::span<const double> x, double t, size_t hint);

}  // namespace kvalo_view
