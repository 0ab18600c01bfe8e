// Calculus on samples: t are the time stamps, y the values, out as many results.
//
// Every kernel takes any number of samples, none included. NaN and infinities go through the
// arithmetic; equal time stamps are not guarded against and give infinities or NaN. The results are
// those of the stated operations in the stated order, bit for bit, on any number of cores.
#pragma once

#include "kernels/axis.h"

namespace mirn2::kernels {

// Backward difference quotient: 0, then (y[i] - y[i-1]) / (t[i] - t[i-1]).
void derivative(Axis t, Axis y, Result out);

// Cumulative trapezoidal rule: 0, then out[i-1] + (y[i-1] + y[i]) * (t[i] - t[i-1]) * 0.5, in order.
void integral(Axis t, Axis y, Result out);

// y[0], then y[i] - y[i-1]: accumulate() undoes it.
void difference(Axis t, Axis y, Result out);

// Running sum in sample order, not compensated.
void accumulate(Axis t, Axis y, Result out);

// 0, then the time since the sample before, and its reciprocal.
void period(Axis t, Axis y, Result out);
void frequency(Axis t, Axis y, Result out);

}  // namespace mirn2::kernels
