// Files mapped into memory, safe against other processes that cut them short, and the line count.
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>
#include <vector>

#include "runtime/machine.h"
#include "runtime/par.h"
#include "runtime/sys.h"
#include "runtime/sys_descriptor.h"

namespace mirn3::sys {

namespace {

// The live mappings, in a list that the signal handler can walk at any moment: blocks are only ever
// added and never freed, and a slot is in use while its first address is not zero.
struct Slot {
  std::atomic<uintptr_t> first{0};
  std::atomic<uintptr_t> last{0};
};

struct SlotBlock {
  std::array<Slot, 256> slots;
  std::atomic<SlotBlock*> next{nullptr};
};

static_assert(std::atomic<uintptr_t>::is_always_lock_free && std::atomic<SlotBlock*>::is_always_lock_free);

SlotBlock live_mappings;
std::mutex live_mappings_writing;
struct sigaction previous_action;
uintptr_t page_size = 4096;

void remember(uintptr_t first, size_t size) {
  const std::lock_guard lock(live_mappings_writing);
  for (SlotBlock* block = &live_mappings;; block = block->next.load(std::memory_order_relaxed)) {
    for (Slot& slot : block->slots) {
      if (slot.first.load(std::memory_order_relaxed) != 0) continue;
      slot.last.store(first + size, std::memory_order_relaxed);
      slot.first.store(first, std::memory_order_release);
      return;
    }
    if (block->next.load(std::memory_order_relaxed) == nullptr) {
      block->next.store(new SlotBlock, std::memory_order_release);
    }
  }
}

void forget(uintptr_t first) noexcept {
  const std::lock_guard lock(live_mappings_writing);
  for (SlotBlock* block = &live_mappings; block != nullptr;
       block = block->next.load(std::memory_order_relaxed)) {
    for (Slot& slot : block->slots) {
      if (slot.first.load(std::memory_order_relaxed) != first) continue;
      slot.first.store(0, std::memory_order_release);
      return;
    }
  }
}

// The end of the live mapping that holds the address; 0 when none does.
uintptr_t end_of_mapping_around(uintptr_t address) noexcept {
  for (SlotBlock* block = &live_mappings; block != nullptr;
       block = block->next.load(std::memory_order_acquire)) {
    for (Slot& slot : block->slots) {
      const uintptr_t first = slot.first.load(std::memory_order_acquire);
      if (first == 0 || address < first) continue;
      const uintptr_t last = slot.last.load(std::memory_order_acquire);
      if (address < last && slot.first.load(std::memory_order_acquire) == first) return last;
    }
  }
  return 0;
}

bool map_zeros(uintptr_t first, uintptr_t last) noexcept {
  return mmap(reinterpret_cast<void*>(first), last - first, PROT_READ,
              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

// A page of ours beyond the end of its file: zeros take its place and the read is repeated. Everything
// else is for whoever handled this signal before us.
void on_bus_error(int signal_number, siginfo_t* info, void* context) {
  const int saved_errno = errno;
  if (info->si_code == BUS_ADRERR) {
    const auto address = reinterpret_cast<uintptr_t>(info->si_addr);
    const uintptr_t page = address & ~(page_size - 1);
    if (const uintptr_t end = end_of_mapping_around(address); end != 0) {
      // A process may hold only so many separate mappings; one to the end needs no new one.
      const uintptr_t rounded_end = (end + page_size - 1) & ~(page_size - 1);
      if (map_zeros(page, page + page_size) || map_zeros(page, rounded_end)) {
        errno = saved_errno;
        return;
      }
    }
  }
  errno = saved_errno;
  if ((previous_action.sa_flags & SA_SIGINFO) != 0 && previous_action.sa_sigaction != nullptr) {
    previous_action.sa_sigaction(signal_number, info, context);
  } else if (previous_action.sa_handler != SIG_DFL && previous_action.sa_handler != SIG_IGN) {
    previous_action.sa_handler(signal_number);
  } else {
    // The read is repeated, faults again and ends the process as if we had never been here.
    signal(signal_number, SIG_DFL);
  }
}

void guard_against_cut_files() {
  static std::once_flag once;
  std::call_once(once, [] {
    page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = on_bus_error;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, &previous_action);
  });
}

// Bytes a lane can count before it would overflow.
constexpr size_t lane_rounds = 255;
constexpr size_t lanes = 128;

// Written so that the compiler turns a round over the lanes into a few vector instructions, whichever
// the target has.
[[gnu::always_inline]] inline uint64_t count_line_feeds(const unsigned char* p, size_t n) {
  uint64_t total = 0;
  while (n >= lanes) {
    const size_t rounds = std::min(n / lanes, lane_rounds);
    unsigned char counts[lanes] = {};
    for (size_t round = 0; round < rounds; ++round, p += lanes) {
      for (size_t lane = 0; lane < lanes; ++lane) counts[lane] += p[lane] == '\n';
    }
    for (const unsigned char count : counts) total += count;
    n -= rounds * lanes;
  }
  for (size_t i = 0; i < n; ++i) total += p[i] == '\n';
  return total;
}

uint64_t count_plain(const unsigned char* p, size_t n) { return count_line_feeds(p, n); }

#if defined(__x86_64__)
[[gnu::target("avx2")]] uint64_t count_avx2(const unsigned char* p, size_t n) {
  return count_line_feeds(p, n);
}

uint64_t count(const unsigned char* p, size_t n) {
  return machine::has_avx2() ? count_avx2(p, n) : count_plain(p, n);
}
#else
uint64_t count(const unsigned char* p, size_t n) { return count_plain(p, n); }
#endif

// Below this a second thread costs more than it saves.
constexpr size_t least_part = size_t{4} << 20;

}  // namespace

Mapping::Mapping(const std::filesystem::path& path) {
  struct stat state {};
  const Descriptor file = open_regular(path, state);
  if (state.st_size == 0) return;
  const auto size = static_cast<size_t>(state.st_size);
  guard_against_cut_files();
  void* start = mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
  if (start == MAP_FAILED) fail("open", path, errno);
  try {
    remember(reinterpret_cast<uintptr_t>(start), size);
  } catch (...) {
    munmap(start, size);
    throw;
  }
  data_ = static_cast<const unsigned char*>(start);
  size_ = size;
}

Mapping::~Mapping() {
  if (data_ == nullptr) return;
  forget(reinterpret_cast<uintptr_t>(data_));
  munmap(const_cast<unsigned char*>(data_), size_);
}

Mapping::Mapping(Mapping&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

Mapping& Mapping::operator=(Mapping&& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

uint64_t line_count(std::span<const unsigned char> bytes) {
  if (bytes.empty()) return 0;
  // More parts than cores: a core that others keep busy then holds nobody up. Reading a fresh mapping
  // straight through was measured as fast as filling its page table beforehand (madvise) or as copying
  // through a cache-sized buffer (pread): memory is the limit.
  const size_t most_parts = par::workers() * 4;
  const size_t parts = std::clamp(bytes.size() / least_part, size_t{1}, most_parts);
  const size_t step = (bytes.size() + parts - 1) / parts;
  std::atomic<uint64_t> total{bytes.back() != '\n'};
  par::run(parts, [&](size_t part) {
    const size_t first = std::min(part * step, bytes.size());
    const size_t size = std::min(step, bytes.size() - first);
    total.fetch_add(count(bytes.data() + first, size), std::memory_order_relaxed);
  });
  return total.load();
}

uint64_t line_count(const std::filesystem::path& path) { return line_count(Mapping(path).bytes()); }

}  // namespace mirn3::sys
