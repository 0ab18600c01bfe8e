// Keeps freed sample buffers for the next allocation of their size.
#include "runtime/mem_pool.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>

#include "runtime/mem.h"

namespace mirn3::mem::pool {

namespace {

struct Kept {
  void* buffer;
  size_t bytes;
};

constexpr size_t most_buffers = 256;
constexpr uint64_t most_bytes = uint64_t{1} << 30;
constexpr uint64_t share_of_budget = 8;

// A sanitizer should see a freed buffer as freed.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool enabled = false;
#else
constexpr bool enabled = true;
#endif

// Oldest first. Whoever finds the lock taken does without the pool: nobody waits, also not in a child
// process that was forked while another thread held it.
std::mutex lock;
std::array<Kept, most_buffers> kept;
size_t count = 0;
uint64_t total = 0;

Kept remove(size_t i) noexcept {
  const Kept removed = kept[i];
  std::copy(kept.begin() + i + 1, kept.begin() + count, kept.begin() + i);
  --count;
  total -= removed.bytes;
  return removed;
}

void drop_oldest() noexcept {
  const Kept oldest = remove(0);
  ::munmap(oldest.buffer, oldest.bytes);
}

}  // namespace

void* take(size_t bytes) noexcept {
  const std::unique_lock guard(lock, std::try_to_lock);
  if (!guard.owns_lock()) return nullptr;
  // The one freed last is the likeliest to be in memory and in the caches still.
  for (size_t i = count; i-- > 0;) {
    if (kept[i].bytes == bytes) return remove(i).buffer;
  }
  return nullptr;
}

bool give(void* buffer, size_t bytes) noexcept {
  const uint64_t most = std::min(most_bytes, memory_bank.load(std::memory_order_relaxed) / share_of_budget);
  if (!enabled || bytes > most) return false;
  if (::madvise(buffer, bytes, MADV_FREE) != 0) return false;
  const std::unique_lock guard(lock, std::try_to_lock);
  if (!guard.owns_lock()) return false;
  while (count == most_buffers || total + bytes > most) drop_oldest();
  kept[count++] = {buffer, bytes};
  total += bytes;
  return true;
}

void clear() noexcept {
  const std::unique_lock guard(lock, std::try_to_lock);
  if (!guard.owns_lock()) return;
  while (count != 0) drop_oldest();
}

}  // namespace mirn3::mem::pool
