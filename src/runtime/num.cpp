// Identifiers: a sequence number in the upper 40 bits, which makes them ascend, and 24 check bits below
// it, which depend on a secret of the process.
#include "runtime/num.h"

#include <atomic>

#include "runtime/entropy.h"

namespace mirn3::num {

namespace {

constexpr unsigned check_bits = 24;

std::atomic<uint64_t> next_sequence{1};

uint64_t salt() noexcept {
  static const uint64_t value = [] {
    uint64_t drawn;
    fill_random(&drawn, sizeof drawn);
    return drawn;
  }();
  return value;
}

uint64_t compose(uint64_t sequence) noexcept {
  // The finaliser of splitmix64: every bit of the sequence and the salt reaches every bit of the result.
  uint64_t h = sequence ^ salt();
  h = (h ^ (h >> 30)) * 0xbf58476d1ce4e5b9u;
  h = (h ^ (h >> 27)) * 0x94d049bb133111ebu;
  h ^= h >> 31;
  return sequence << check_bits | h >> (64 - check_bits);
}

}  // namespace

uint64_t create_id() noexcept { return compose(next_sequence.fetch_add(1, std::memory_order_relaxed)); }

uint64_t check_id(uint64_t asked) noexcept { return asked != 0 ? asked : create_id(); }

}  // namespace mirn3::num
