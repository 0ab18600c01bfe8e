#include "functions/kernels/calculus.h"

namespace mirn2::fn::kernels {

namespace {

// out[0] = first, out[i] = step(i) from there on.
template <typename Step>
void fill(Result out, double first, Step step) {
  if (out.empty()) return;
  out[0] = first;
  for (size_t i = 1; i < out.size(); ++i) out[i] = step(i);
}

}  // namespace

void derivative(Axis t, Axis y, Result out) {
  fill(out, 0.0, [=](size_t i) { return (y[i] - y[i - 1]) / (t[i] - t[i - 1]); });
}

void integral(Axis t, Axis y, Result out) {
  fill(out, 0.0, [=](size_t i) { return out[i - 1] + (y[i - 1] + y[i]) * (t[i] - t[i - 1]) * 0.5; });
}

void difference(Axis, Axis y, Result out) {
  if (!out.empty()) fill(out, y[0], [=](size_t i) { return y[i] - y[i - 1]; });
}

void accumulate(Axis, Axis y, Result out) {
  if (!out.empty()) fill(out, y[0], [=](size_t i) { return out[i - 1] + y[i]; });
}

void period(Axis t, Axis, Result out) {
  fill(out, 0.0, [=](size_t i) { return t[i] - t[i - 1]; });
}

void frequency(Axis t, Axis, Result out) {
  fill(out, 0.0, [=](size_t i) { return 1.0 / (t[i] - t[i - 1]); });
}

}  // namespace mirn2::fn::kernels
