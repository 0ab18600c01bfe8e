// What the kernels on one series share: the names of their arguments and the split over the cores.
#pragma once

#include <cstddef>
#include <span>

#include "runtime/par.h"

namespace mirn2::kernels {

using Axis = std::span<const double>;  // time stamps or values
using Result = std::span<double>;      // as many elements, all of them written

// Calls work(first, last) for parts of 0..n, on all cores when there is enough to share out. Only for
// work on single elements: the parts differ from machine to machine, the results must not.
template <typename Work>
void in_parts(size_t n, Work&& work) {
  constexpr size_t least = size_t{1} << 16;
  mirn3::par::ranges(n, least, std::forward<Work>(work));
}

// out[i] = value(i) for every element.
template <typename Value>
void each(Result out, Value value) {
  in_parts(out.size(), [=](size_t first, size_t last) {
    double* const to = out.data();
    for (size_t i = first; i < last; ++i) to[i] = value(i);
  });
}

}  // namespace mirn2::kernels
