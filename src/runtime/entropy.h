// Random bytes from the system: different in every process, even a forked child.
#pragma once

#include <sys/random.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>

namespace mirn3 {

inline void fill_random(void* buffer, size_t bytes) noexcept {
  auto* out = static_cast<unsigned char*>(buffer);
  size_t done = 0;
  while (done < bytes) {
    const ssize_t got = ::getrandom(out + done, bytes - done, 0);
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  if (done == bytes) return;
  // Only where the system call is forbidden: use the clock and an address.
  std::mt19937_64 generator(
      static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
      reinterpret_cast<uintptr_t>(out));
  for (; done < bytes; ++done) out[done] = static_cast<unsigned char>(generator() >> 56);
}

}  // namespace mirn3
