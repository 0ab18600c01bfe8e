// First-order filters as recursions over the samples.
#include "kernels/filters.h"

namespace mirn2::kernels {

void lowpass(Axis y, FirstOrder filter, Result out) {
  if (out.empty()) return;
  const double share = filter.dt / (filter.dt + filter.tau);
  const double rest = 1.0 - share;
  double last = y[0];
  out[0] = last;
  for (size_t i = 1; i < out.size(); ++i) {
    last = rest * last + share * y[i];
    out[i] = last;
  }
}

void highpass(Axis y, FirstOrder filter, Result out) {
  if (out.empty()) return;
  const double share = filter.tau / (filter.dt + filter.tau);
  double last = y[0];
  out[0] = last;
  for (size_t i = 1; i < out.size(); ++i) {
    last = share * (last + y[i] - y[i - 1]);
    out[i] = last;
  }
}

}  // namespace mirn2::kernels
