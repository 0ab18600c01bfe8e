// First-order filters with fixed coefficients: recursions over sample indexes, in the order stated.
//
// dt is the representative period of the series and tau the time constant, both in the unit of the time
// stamps; nothing is guarded, so dt = -tau, NaN and infinities go through the arithmetic, and a NaN
// value stays in all later results. With fewer than two samples dt does not matter.
#pragma once

#include "kernels/axis.h"

namespace mirn2::kernels {

struct FirstOrder {
  double dt;
  double tau;
};

// With a = dt / (dt + tau): y[0], then (1 - a) * out[i-1] + a * y[i].
void lowpass(Axis y, FirstOrder filter, Result out);

// With a = tau / (dt + tau): y[0], then a * (out[i-1] + y[i] - y[i-1]).
void highpass(Axis y, FirstOrder filter, Result out);

}  // namespace mirn2::kernels
