// Makes Python lists and tuples of many floats fast.
#include "objects/many_floats.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

#include "objects/frame.h"

namespace mirn2 {

namespace {

constexpr size_t arena_bytes = size_t{1} << 20;  // of CPython 3.10 and later on 64-bit machines
constexpr size_t floats_in_arena =
    arena_bytes / sizeof(PyFloatObject) * 98 / 100;  // the rest is heads of pools
constexpr size_t least_arenas = 4;

}  // namespace

FloatRoom::FloatRoom(size_t floats) {
  PyObject_GetArenaAllocator(&usual_);
  const size_t arenas = floats / floats_in_arena + 1;
  if (arenas < least_arenas) return;
  try {
    stock_.reserve(arenas);
  } catch (const std::bad_alloc&) {
    return;
  }
  while (stock_.size() < arenas) {
    void* const arena = usual_.alloc(usual_.ctx, arena_bytes);
    if (arena == nullptr) break;
    stock_.push_back(arena);
  }
  // The system mostly puts them next to each other, and only such pairs can become huge pages.
  std::ranges::sort(stock_, std::greater<>());
  for (size_t first = 0, next; first < stock_.size(); first = next) {
    next = first + 1;
    while (next < stock_.size() &&
           static_cast<char*>(stock_[next]) + arena_bytes == static_cast<char*>(stock_[next - 1])) {
      ++next;
    }
    ::madvise(stock_[next - 1], (next - first) * arena_bytes, MADV_HUGEPAGE);
  }
  PyObjectArenaAllocator from_stock{this, take, give_back};
  PyObject_SetArenaAllocator(&from_stock);
  is_installed_ = true;
}

FloatRoom::~FloatRoom() {
  if (is_installed_) PyObject_SetArenaAllocator(&usual_);
  for (void* const arena : stock_) usual_.free(usual_.ctx, arena, arena_bytes);
}

void* FloatRoom::take(void* room, size_t size) {
  auto* const self = static_cast<FloatRoom*>(room);
  if (size != arena_bytes || self->stock_.empty()) return self->usual_.alloc(self->usual_.ctx, size);
  void* const arena = self->stock_.back();
  self->stock_.pop_back();
  return arena;
}

void FloatRoom::give_back(void* room, void* arena, size_t size) {
  auto* const self = static_cast<FloatRoom*>(room);
  self->usual_.free(self->usual_.ctx, arena, size);
}

FloatTuple::FloatTuple(size_t floats) : tuple_(checked(PyTuple_New(static_cast<Py_ssize_t>(floats)))) {
  const FloatRoom room(floats);
  for (size_t i = 0; i < floats; ++i) {
    PyTuple_SET_ITEM(tuple_.get(), static_cast<Py_ssize_t>(i), checked(PyFloat_FromDouble(0.0)).release());
  }
}

}  // namespace mirn2
