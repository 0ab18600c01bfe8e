// Derivatives, integrals and differences of samples.
#include "kernels/calculus.h"

namespace mirn2::kernels {

namespace {

// out[0] = first, out[i] = step(i) from there on, in any order.
template <typename Step>
void fill(Result out, double first, Step step) {
  if (out.empty()) return;
  out[0] = first;
  each(out.subspan(1), [=](size_t i) { return step(i + 1); });
}

}  // namespace

void derivative(Axis t, Axis y, Result out) {
  fill(out, 0.0, [=](size_t i) { return (y[i] - y[i - 1]) / (t[i] - t[i - 1]); });
}

void integral(Axis t, Axis y, Result out) {
  if (out.empty()) return;
  // The sum stays in a register: only its additions wait for each other.
  double sum = 0.0;
  out[0] = sum;
  for (size_t i = 1; i < out.size(); ++i) {
    sum = sum + (y[i - 1] + y[i]) * (t[i] - t[i - 1]) * 0.5;
    out[i] = sum;
  }
}

void difference(Axis, Axis y, Result out) {
  if (!out.empty()) fill(out, y[0], [=](size_t i) { return y[i] - y[i - 1]; });
}

void accumulate(Axis, Axis y, Result out) {
  if (out.empty()) return;
  double sum = y[0];
  out[0] = sum;
  for (size_t i = 1; i < out.size(); ++i) {
    sum = sum + y[i];
    out[i] = sum;
  }
}

void period(Axis t, Axis, Result out) {
  fill(out, 0.0, [=](size_t i) { return t[i] - t[i - 1]; });
}

void frequency(Axis t, Axis, Result out) {
  fill(out, 0.0, [=](size_t i) { return 1.0 / (t[i] - t[i - 1]); });
}

}  // namespace mirn2::kernels
