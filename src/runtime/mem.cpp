// The memory budget, and the memory of sample buffers.
#include "runtime/mem.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <new>
#include <string>

#include "runtime/log.h"
#include "runtime/mem_pool.h"

#include <fmt/format.h>

namespace mirn3::mem {

namespace {

constexpr uint64_t unlimited = std::numeric_limits<uint64_t>::max();

// Buffers of this size on are mapped: fresh pages are zero without being touched, and huge pages make
// the page faults of the first write five times cheaper.
constexpr size_t mapped_from = size_t{1} << 20;
constexpr size_t huge_page = size_t{2} << 20;
constexpr size_t vector_alignment = 64;

}  // namespace

std::atomic<uint64_t> memory_used{0};
std::atomic<uint64_t> memory_bank{unlimited};
std::function<void()> callback_reserve;

namespace {

// ---- the charge ----

// Set from the warning that the budget is exceeded until it no longer is: one warning a crossing.
std::atomic<bool> warned{false};

void forget_warning(uint64_t used) noexcept {
  if (warned.load(std::memory_order_relaxed) && used <= memory_bank.load(std::memory_order_relaxed)) {
    warned.store(false, std::memory_order_relaxed);
  }
}

// Has room made, unless this very thread is already making it.
void make_room() {
  thread_local bool making = false;
  if (making || !callback_reserve) return;
  struct Scope {
    Scope() { making = true; }
    ~Scope() { making = false; }
  } scope;
  try {
    callback_reserve();
  } catch (const std::exception& e) {
    log::write(log::warning, fmt::format("Making room in the memory budget failed: {:s}", e.what()));
  }
}

// ---- the budget ----

uint64_t physical_memory() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long bytes = ::sysconf(_SC_PAGESIZE);
  if (pages <= 0 || bytes <= 0) return unlimited;
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(bytes);
}

// A whole text that is one decimal number; `unlimited` for everything else ("max" among it).
uint64_t parse_bytes(std::string_view text) {
  uint64_t value = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
  return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() ? value : unlimited;
}

// The smallest limit from a group's folder up to the top of its hierarchy.
uint64_t smallest_limit(const std::filesystem::path& top, std::filesystem::path group, const char* file) {
  uint64_t smallest = unlimited;
  for (group = group.relative_path();; group = group.parent_path()) {
    std::ifstream stream(top / group / file);
    std::string text;
    if (stream >> text) smallest = std::min(smallest, parse_bytes(text));
    if (group.empty()) return smallest;
  }
}

// The memory limit of this process' control group, in the version 2 and the version 1 hierarchy.
uint64_t cgroup_limit() {
  uint64_t limit = unlimited;
  std::ifstream groups("/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {  // number:controllers:path
    const size_t first = line.find(':');
    const size_t second = line.find(':', first + 1);
    if (first == std::string::npos || second == std::string::npos) continue;
    const std::string controllers = ',' + line.substr(first + 1, second - first - 1) + ',';
    const std::string path = line.substr(second + 1);
    if (controllers == ",,") limit = std::min(limit, smallest_limit("/sys/fs/cgroup", path, "memory.max"));
    if (controllers.find(",memory,") != std::string::npos) {
      limit = std::min(limit, smallest_limit("/sys/fs/cgroup/memory", path, "memory.limit_in_bytes"));
    }
  }
  return limit;
}

// ---- buffers ----

// Bytes that a mapping of n doubles covers; 0 when a buffer of this size is not mapped.
size_t mapped_bytes(size_t n) noexcept {
  const size_t bytes = n * sizeof(double);
  if (bytes < mapped_from) return 0;
  static const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  // An end that does not fill a huge page comes in small ones, each with a fault of its own. Where it
  // costs an eighth at most, the end becomes a huge page too.
  const size_t whole = (bytes + huge_page - 1) / huge_page * huge_page;
  if (whole - bytes <= bytes / 8) return whole;
  return (bytes + page - 1) / page * page;
}

double* map_samples(size_t bytes) {
  // Maps a huge page more than needed and gives back what lies before and after the aligned range.
  const size_t whole = bytes + huge_page;
  void* mapping = ::mmap(nullptr, whole, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) throw std::bad_alloc();
  const auto begin = reinterpret_cast<uintptr_t>(mapping);
  const uintptr_t aligned = (begin + huge_page - 1) / huge_page * huge_page;
  const size_t before = aligned - begin;
  const size_t after = whole - before - bytes;
  if (before != 0) ::munmap(mapping, before);
  if (after != 0) ::munmap(reinterpret_cast<void*>(aligned + bytes), after);
  auto* samples = reinterpret_cast<double*>(aligned);
  ::madvise(samples, bytes, MADV_HUGEPAGE);  // a wish: small pages work as well
  return samples;
}

}  // namespace

void reserve(size_t bytes) {
  uint64_t used = memory_used.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  if (used <= memory_bank.load(std::memory_order_relaxed)) {
    forget_warning(used);
    return;
  }
  try {
    pool::clear();  // what nobody uses must not take room from what somebody does
    make_room();
    used = memory_used.load(std::memory_order_relaxed);
    const uint64_t bank = memory_bank.load(std::memory_order_relaxed);
    if (used > bank) {
      if (!warned.exchange(true, std::memory_order_relaxed)) {
        log::write(log::warning,
                   fmt::format("Samples take {:d} bytes, more than the memory budget of {:d} bytes; raise "
                               "KVALO_MEMORY_BANK or hold fewer series at once",
                               used, bank));
      }
    } else {
      forget_warning(used);
    }
  } catch (...) {
    release(bytes);
    throw;
  }
}

void release(size_t bytes) noexcept {
  forget_warning(memory_used.fetch_sub(bytes, std::memory_order_relaxed) - bytes);
}

void configure() {
  uint64_t bank = std::min(physical_memory(), cgroup_limit());
  if (bank != unlimited) bank /= 2;
  if (const char* text = std::getenv("KVALO_MEMORY_BANK")) {
    const uint64_t asked = parse_bytes(text);
    if (asked != unlimited && asked != 0) {
      bank = asked;
    } else {
      log::write(log::warning,
                 fmt::format("KVALO_MEMORY_BANK is '{:s}', which is not a number of bytes; the memory budget "
                             "is {:d} bytes",
                             text, bank));
    }
  }
  memory_bank.store(bank);
}

double* allocate_samples(size_t n, Content content) {
  if (n >= size_t{1} << 60) throw std::bad_alloc();  // more than any address space; sums below stay whole
  if (const size_t bytes = mapped_bytes(n)) {
    void* used_before = pool::take(bytes);
    if (used_before == nullptr) return map_samples(bytes);
    if (content == Content::zeros) std::memset(used_before, 0, bytes);
    return static_cast<double*>(used_before);
  }
  // At least one unit, so that no samples have an address as well.
  const size_t bytes =
      std::max((n * sizeof(double) + vector_alignment - 1) / vector_alignment, size_t{1}) * vector_alignment;
  void* buffer = std::aligned_alloc(vector_alignment, bytes);
  if (buffer == nullptr) throw std::bad_alloc();
  if (content == Content::zeros) std::memset(buffer, 0, bytes);
  return static_cast<double*>(buffer);
}

void free_samples(double* buffer, size_t n) noexcept {
  if (buffer == nullptr) return;
  if (const size_t bytes = mapped_bytes(n)) {
    if (!pool::give(buffer, bytes)) ::munmap(buffer, bytes);
  } else {
    std::free(buffer);
  }
}

void BufferDeleter::operator()(double* buffer) const noexcept {
  if (origin == Origin::pool) {
    free_samples(buffer, room);
  } else {
    std::free(buffer);
  }
  release(n * sizeof(double));
}

}  // namespace mirn3::mem
