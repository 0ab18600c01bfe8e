// Keeps extracted archives in the cache folder and finds them again.
#include "runtime/zip_cache.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/sys.h"
#include "runtime/sys_descriptor.h"

namespace mirn3::zip {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Part of every folder's name: to be raised when the same archive is to be extracted in another way.
constexpr uint64_t layout = 1;

constexpr const char* temporary_prefix = ".tmp-";
constexpr size_t name_length = 32;
constexpr auto kept_unused = 30 * 24h;
constexpr auto kept_temporary = 1min;  // time to lock a folder that was just made

// Which parts of an archive are read for the digest. The end holds the directory of zip and 7z with a
// checksum of every file, and the checksum and length of everything in a gzipped tar.
constexpr uint64_t head_bytes = uint64_t{64} << 10;
constexpr uint64_t tail_bytes = uint64_t{512} << 10;
constexpr uint64_t samples = 16;
constexpr uint64_t sample_bytes = 4096;

// Two independent 64-bit digests of words; no protection against deliberate collisions.
class Digest {
 public:
  void add(uint64_t word) {
    a_ = mix(a_ ^ word, 0x9E3779B97F4A7C15);
    b_ = mix(b_ + word, 0xD6E8FEB86659FD93) ^ word;
  }
  void add(std::string_view bytes) {
    for (; bytes.size() >= 8; bytes.remove_prefix(8)) {
      uint64_t word;
      std::memcpy(&word, bytes.data(), 8);
      add(word);
    }
    uint64_t word = 0;
    std::memcpy(&word, bytes.data(), bytes.size());
    add(word ^ uint64_t{bytes.size()} << 56);
  }
  std::string text() const { return fmt::format("{:016x}{:016x}", mix(a_, b_ | 1), mix(b_, a_ | 1)); }

 private:
  static uint64_t mix(uint64_t value, uint64_t factor) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = Wide{value ^ 0x2545F4914F6CDD1D} * factor;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64) ^ (value << 23);
  }
  uint64_t a_ = 0x243F6A8885A308D3;
  uint64_t b_ = 0x13198A2E03707344;
};

// The name of an archive's folder. Its size, time and the parts that tell of all the rest go into it, so a
// file that changes in place gets another one.
std::string identify(const fs::path& archive, Extract extract) {
  struct stat state {};
  const sys::Descriptor file = sys::open_regular(archive, state);
  const auto size = static_cast<uint64_t>(state.st_size);
  Digest digest;
  digest.add(layout);
  digest.add(extract == extract_zip ? 1 : extract == extract_7zip ? 2 : 3);
  digest.add(size);
  digest.add(static_cast<uint64_t>(state.st_mtim.tv_sec));
  digest.add(static_cast<uint64_t>(state.st_mtim.tv_nsec));

  std::string bytes;
  const auto add = [&](uint64_t offset, uint64_t length) {
    bytes.resize(std::min(length, size - offset));
    const ssize_t got = ::pread(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (got < 0) sys::fail("read", archive, errno);
    digest.add(std::string_view(bytes).substr(0, static_cast<size_t>(got)));
  };
  if (size <= head_bytes + samples * sample_bytes + tail_bytes) {
    add(0, size);
  } else {
    add(0, head_bytes);
    const uint64_t step = (size - head_bytes - tail_bytes) / samples;
    for (uint64_t i = 0; i < samples; ++i) add(head_bytes + i * step, sample_bytes);
    add(size - tail_bytes, tail_bytes);
  }
  return digest.text();
}

// A folder below the cache that is removed unless it is published. The lock on it tells others that it is in
// use, and ends with the process.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const fs::path& cache) {
    std::string pattern = (cache / temporary_prefix).string() + "XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) sys::fail("create", pattern, errno);
    path_ = pattern;
    lock_.emplace(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!*lock_ || ::flock(lock_->get(), LOCK_EX | LOCK_NB) != 0) sys::fail("lock", path_, errno);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const fs::path& path() const { return path_; }

  // Gives the folder its final name; false when there is something under that name.
  bool publish(const fs::path& home) {
    if (::rename(path_.c_str(), home.c_str()) != 0) {
      if (errno == EEXIST || errno == ENOTEMPTY || errno == ENOTDIR) return false;
      sys::fail("create", home, errno);
    }
    path_.clear();
    return true;
  }

 private:
  fs::path path_;
  std::optional<sys::Descriptor> lock_;
};

// ---- the list of a folder's files: a line each, its size, a blank, its name ----

void write_list(const fs::path& path, const std::vector<Entry>& entries) {
  sys::File file(path, sys::write_text);
  for (const Entry& entry : entries) file.write(fmt::format("{} {}\n", entry.size, entry.name));
  file.write("end\n");
  if (std::fflush(file.stream()) != 0 || ::fdatasync(::fileno(file.stream())) != 0) {
    sys::fail("write", path, errno);
  }
  file.close();
}

// What an earlier extraction left under this name, if it is all there still.
std::optional<Extracted> find_extracted(const fs::path& home) {
  if (!sys::exists(home / "list")) return std::nullopt;
  Extracted found{.folder = home / "files", .files = {}};
  sys::File list(home / "list", sys::read_text);
  while (const char* read = list.readline()) {
    std::string_view line(read);
    if (line == "end\n") return found;
    uint64_t size = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), size);
    if (error != std::errc() || *end != ' ' || line.back() != '\n') return std::nullopt;
    line.remove_suffix(1);
    const fs::path file = found.folder / line.substr(static_cast<size_t>(end + 1 - line.data()));
    struct stat state {};
    const bool whole = ::lstat(file.c_str(), &state) == 0 && S_ISREG(state.st_mode) &&
                       static_cast<uint64_t>(state.st_size) == size;
    if (!whole) return std::nullopt;
    found.files.push_back(file);
  }
  return std::nullopt;
}

void mark_used(const fs::path& home) { ::utimensat(AT_FDCWD, home.c_str(), nullptr, 0); }

// Removes a folder in one step, so that nobody ever finds half of it.
void discard(const fs::path& folder, const fs::path& cache) {
  std::string aside = (cache / temporary_prefix).string() + "XXXXXX";
  if (::mkdtemp(aside.data()) == nullptr) return;
  std::error_code ignored;
  fs::rename(folder, fs::path(aside) / "old", ignored);
  fs::remove_all(aside, ignored);
}

// ---- cleaning ----

bool is_abandoned(const fs::path& folder) {
  const sys::Descriptor file(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

bool is_name(const std::string& text) {
  return text.size() == name_length && text.find_first_not_of("0123456789abcdef") == text.npos;
}

// Removes folders that nobody has opened for long, and what killed processes left.
void clean(const fs::path& cache) {
  const auto now = fs::file_time_type::clock::now();
  std::error_code error;
  std::vector<fs::path> old, abandoned;
  for (fs::directory_iterator it(cache, error), end; !error && it != end; it.increment(error)) {
    std::error_code unknown;
    const auto age = now - fs::last_write_time(it->path(), unknown);
    if (unknown) continue;
    const std::string name = it->path().filename().string();
    if (is_name(name) && age > kept_unused) old.push_back(it->path());
    if (name.starts_with(temporary_prefix) && age > kept_temporary) abandoned.push_back(it->path());
  }
  for (const fs::path& folder : old) {
    log::write(log::info, fmt::format("'{}' was not used for long and is removed", folder.string()));
    discard(folder, cache);
  }
  for (const fs::path& folder : abandoned) {
    std::error_code ignored;
    if (is_abandoned(folder)) fs::remove_all(folder, ignored);
  }
}

}  // namespace

Extracted extract_to_cache(const fs::path& archive, Extract extract) {
  const std::string name = identify(archive, extract);
  const fs::path cache = sys::cache_path();
  const fs::path home = cache / name;
  if (auto found = find_extracted(home)) {
    mark_used(home);
    return *std::move(found);
  }
  fs::create_directories(cache);
  clean(cache);
  {
    TemporaryFolder temporary(cache);
    const fs::path files = temporary.path() / "files";
    fs::create_directory(files);
    const std::vector<Entry> entries = extract(archive, files, {.durable = true});
    if (identify(archive, extract) != name) {
      throw exc::error_t(fmt::format(
          "'{}' changed while it was being unpacked: open it again when it is complete", archive.string()));
    }
    write_list(temporary.path() / "list", entries);
    if (!temporary.publish(home) && !find_extracted(home)) {
      discard(home, cache);  // damaged since it was extracted
      temporary.publish(home);
    }
  }
  if (auto found = find_extracted(home)) return *std::move(found);
  throw exc::error_t(
      fmt::format("'{}' cannot be unpacked: '{}' changes all the time", archive.string(), cache.string()));
}

}  // namespace mirn3::zip
