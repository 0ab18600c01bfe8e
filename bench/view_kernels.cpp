// Hands the kernels of the view to bench/view.py through ctypes.
#include <cstring>
#include <memory>

#include "kvalo/export.h"
#include "view/columns.h"

namespace {

struct Held {
  std::span<const double> x, y;
  kvalo_view::Pyramid pyramid;
};

}  // namespace

extern "C" {

KVALO_EXPORT void* view_build(const double* x, const double* y, size_t n) {
  return new Held{{x, n}, {y, n}, kvalo_view::Pyramid({x, n}, {y, n})};
}
KVALO_EXPORT void view_free(void* held) { delete static_cast<Held*>(held); }
KVALO_EXPORT size_t view_memory(const void* held) { return static_cast<const Held*>(held)->pyramid.memory(); }

// Writes width x {first, min, max, last} to out.
KVALO_EXPORT void view_columns(const void* held, double lo, double hi, size_t width, double* out) {
  const Held& h = *static_cast<const Held*>(held);
  for (const auto& column : kvalo_view::line_columns({h.x, h.y, h.pyramid}, {lo, hi}, width).columns) {
    for (const double value : {column.first, column.lo, column.hi, column.last}) *out++ = value;
  }
}

// Copies n values: what memory bandwidth alone costs.
KVALO_EXPORT void view_copy(double* to, const double* from, size_t n) {
  std::memcpy(to, from, n * sizeof *to);
}
}
