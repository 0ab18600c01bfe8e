// Fuzzes the reader of HDF5 files the way a session meets them: any bytes are scanned, which tries them in a
// forked process first, then every variable is loaded, twice. What the library does in the fork is an answer
// ("damaged"); whatever crashes, hangs or leaks beside it is a fault of the reader.
//
// The machine looks small, so that files that claim much are refused before their pages are touched.
#include <fcntl.h>
#include <hdf5.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "backends/hdf5/reader_hdf5.h"
#include "load_all.h"
#include "own_home.h"
#include "runtime/mem.h"

// Exported by the library, declared in none of its public headers.
extern "C" __attribute__((weak)) uint32_t H5_checksum_metadata(const void* data, size_t size, uint32_t start);
extern "C" long __real_sysconf(int name);
// Of the sanitizer, where there is one.
extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*)());

namespace {

constexpr size_t most_bytes = 1 << 16;
constexpr size_t most_variables = 24;
constexpr long machine_bytes = 128 << 20;

// The library asks for the real name of its file, which files in memory have not.
std::string path;
int file = -1;

// The end of a forked process is no finding: nothing is printed about it, no input kept, and one that runs
// in circles ends soon.
void in_child() {
  constexpr itimerval most_work{{}, {0, 300'000}};
  setitimer(ITIMER_PROF, &most_work, nullptr);
  close(STDERR_FILENO);
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(nullptr);
}

// A piece of the file that ends in a checksum of its bytes.
struct Sealed {
  size_t first = 0, size = 0;  // without the checksum
};

uint32_t number_at(const uint8_t* data, size_t at) {
  uint32_t number = 0;
  std::memcpy(&number, data + at, sizeof number);
  return number;
}

// The sealed piece that `at` lies in; empty without. Where it ends is found by trying.
Sealed sealed_around(const uint8_t* data, size_t size, size_t at) {
  constexpr size_t longest = 1024;
  constexpr std::string_view signatures[] = {"OHDR", "OCHK", "BTHD", "BTLF", "BTIN",   "FRHP", "FHDB",
                                             "FHIB", "FSHD", "FSSE", "FAHD", "FADB",   "EAHD", "EAIB",
                                             "EASB", "EADB", "SMTB", "SMLI", "\x89HDF"};
  if (H5_checksum_metadata == nullptr) return {};
  for (size_t back = 0; back <= std::min(at, longest); ++back) {
    const size_t first = at - back;
    const std::string_view rest(reinterpret_cast<const char*>(data) + first, size - first);
    if (std::none_of(std::begin(signatures), std::end(signatures),
                     [&](std::string_view signature) { return rest.substr(0, 4) == signature; }))
      continue;
    for (size_t length = 4; length <= longest && first + length + 4 <= size; ++length) {
      if (H5_checksum_metadata(data + first, length, 0) == number_at(data, first + length) &&
          first + length + 4 > at)
        return {first, length};
    }
    return {};
  }
  return {};
}

}  // namespace

// Called by the sanitizers before they are ready, too.
extern "C" __attribute__((no_sanitize("address", "undefined"))) long __wrap_sysconf(int name) {
  if (name == _SC_PHYS_PAGES) return machine_bytes / __real_sysconf(_SC_PAGESIZE);
  return __real_sysconf(name);
}

// The size stays, because everything in these files is found by its address: a few bytes become others, most
// often in the headers, which are what the data are not, and checksums are made to match.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t, unsigned seed) {
  if (size < 8) return size;
  std::minstd_rand random(seed);
  const auto below = [&](size_t bound) { return static_cast<size_t>(random()) % bound; };
  for (size_t changes = 1 + below(4); changes > 0; --changes) {
    size_t at = below(size);
    for (int i = 0; i < 8 && data[at] == 0; ++i) at = below(size);
    if (below(4) == 0 && at > 0) at -= 1;
    const Sealed piece = sealed_around(data, size, at);
    constexpr uint8_t telling[] = {0, 1, 2, 3, 4, 8, 16, 0x20, 0x7f, 0x80, 0xfe, 0xff};
    const size_t width = std::min<size_t>(size - at, size_t{1} << below(4));
    switch (below(6)) {
      case 0:
        data[at] = static_cast<uint8_t>(random() >> 8);
        break;
      case 1:
        data[at] = telling[below(sizeof telling)];
        break;
      case 2:
        data[at] = static_cast<uint8_t>(data[at] ^ 1U << below(8));
        break;
      case 3:
        std::memset(data + at, below(2) != 0 ? 0xff : 0, width);
        break;
      case 4:
        data[at] = static_cast<uint8_t>(data[at] + below(9) - 4);
        break;
      default:
        std::memmove(data + at, data + below(size - width + 1), width);
    }
    if (piece.size == 0) continue;
    const uint32_t sum = H5_checksum_metadata(data + piece.first, piece.size, 0);
    if (below(16) != 0) std::memcpy(data + piece.first + piece.size, &sum, sizeof sum);
  }
  return size;
}

// The sanitizers look for these by name, also from a library of their own.
#define KVALO_SANITIZER_HOOK extern "C" __attribute__((visibility("default")))

// Less memory makes forking faster.
KVALO_SANITIZER_HOOK const char* __asan_default_options() {
  return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:malloc_context_size=8";
}

// The library forgets memory of its own, in sound files too. What the reader forgets to close is counted
// below.
KVALO_SANITIZER_HOOK const char* __lsan_default_suppressions() { return "leak:libhdf5"; }
KVALO_SANITIZER_HOOK const char* __lsan_default_options() { return "print_suppressions=0"; }
// That forgetting would have leaks looked for after most inputs, which takes as long as the input.
KVALO_SANITIZER_HOOK int __lsan_is_turned_off() {
  static unsigned asked = 0;
  return asked++ % 64 != 0 ? 1 : 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  path = std::string(give_own_home()) + "/fuzz.h5";
  file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) complain("no file");
  mirn3::mem::memory_bank = static_cast<uint64_t>(machine_bytes) / 2;
  if (pthread_atfork(nullptr, nullptr, in_child) != 0) complain("no fork handler");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > most_bytes) return 0;
  if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
    complain("the file cannot be written");
  {
    mirn2::rd::ReaderHDF5 reader(path);
    load_all(reader, most_variables);
  }
  if (H5Fget_obj_count(static_cast<hid_t>(H5F_OBJ_ALL), H5F_OBJ_ALL) != 0)
    complain("something was left open");
  return 0;
}
