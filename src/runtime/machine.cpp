// What this machine has: asked once for each question.
#include "runtime/machine.h"

#include <unistd.h>

namespace mirn3::machine {

uint64_t physical_memory() noexcept {
  static const uint64_t bytes = [] {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long page = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || page <= 0) return UINT64_MAX;
    return static_cast<uint64_t>(pages) * static_cast<uint64_t>(page);
  }();
  return bytes;
}

#ifdef __x86_64__
bool has_avx2() noexcept {
  static const bool has = __builtin_cpu_supports("avx2") != 0;
  return has;
}

bool has_avx2_and_bmi() noexcept {
  static const bool has =
      has_avx2() && __builtin_cpu_supports("bmi") != 0 && __builtin_cpu_supports("bmi2") != 0;
  return has;
}
#else
bool has_avx2() noexcept { return false; }
bool has_avx2_and_bmi() noexcept { return false; }
#endif

}  // namespace mirn3::machine
