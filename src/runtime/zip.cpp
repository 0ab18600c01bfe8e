// The extraction itself: entries out of libarchive, checked, into files.
#include "runtime/zip.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/par.h"
#include "runtime/sys_descriptor.h"
#include "runtime/zip_entry_name.h"
#include "runtime/zip_library.h"

namespace mirn3::zip {

namespace {

namespace fs = std::filesystem;

// An archive may always grow to this much, and beyond it to so many times its own size. Logs of text
// shrink to a tenth, at the very best to a hundredth; bombs to a thousandth and less.
constexpr uint64_t always_allowed = uint64_t{1} << 30;
constexpr uint64_t largest_ratio = 200;

// Left free for others on the disk.
constexpr uint64_t disk_reserve = uint64_t{64} << 20;

// What a tar has besides the content of an entry, with long names.
constexpr uint64_t tar_overhead = 8192;

constexpr size_t gzip_buffer = size_t{256} << 10;
constexpr uint64_t to_disk_at_once = uint64_t{8} << 20;

// libarchive converts names to the character set of the thread's locale.
class Utf8Names {
 public:
  Utf8Names() {
    locale_ = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (locale_ != nullptr) before_ = uselocale(locale_);
  }
  ~Utf8Names() {
    if (locale_ == nullptr) return;
    uselocale(before_);
    freelocale(locale_);
  }
  Utf8Names(const Utf8Names&) = delete;
  Utf8Names& operator=(const Utf8Names&) = delete;

 private:
  locale_t locale_ = nullptr;
  locale_t before_ = nullptr;
};

// The bytes inside the gzip layer. libarchive has one of its own, which ignores the checksum. Extraction
// takes longer than all the rest, so it runs ahead in a thread of its own where there is a core for it.
class GzipStream {
 public:
  GzipStream(sys::Descriptor& file, uint64_t limit) : limit_(limit) {
    stream_ = library().gzdopen(file.get(), "rb");
    if (stream_ == nullptr) throw std::bad_alloc();
    file.release();
    library().gzbuffer(stream_, gzip_buffer);
    if (par::workers() == 1) return;
    try {
      ahead_ = std::thread([this] { run_ahead(); });
    } catch (const std::system_error&) {  // no more threads: next() does the work
    }
  }
  ~GzipStream() {
    if (ahead_.joinable()) {
      {
        const std::lock_guard lock(guard_);
        stop_ = true;
      }
      changed_.notify_all();
      ahead_.join();
    }
    library().gzclose_r(stream_);
  }
  GzipStream(const GzipStream&) = delete;
  GzipStream& operator=(const GzipStream&) = delete;

  // The next bytes, good until the next call; empty at the end. Throws a plain reason.
  std::string_view next() {
    if (!ahead_.joinable()) {
      fill(buffers_[0]);
      return view(buffers_[0]);
    }
    std::unique_lock lock(guard_);
    if (std::exchange(is_looked_at_, false)) {
      ++taken_;
      changed_.notify_all();
    }
    changed_.wait(lock, [&] { return filled_ != taken_ || failure_ != nullptr; });
    if (filled_ == taken_) std::rethrow_exception(failure_);
    is_looked_at_ = buffers_[taken_ % buffers_.size()].size != 0;  // the end stays the end
    return view(buffers_[taken_ % buffers_.size()]);
  }

  // Reads what is after the last entry, so that the checksum at the end is looked at.
  void finish() {
    while (!next().empty()) continue;
  }

  static la_ssize_t read(archive*, void* self, const void** bytes) {
    auto& stream = *static_cast<GzipStream*>(self);
    try {
      const std::string_view got = stream.next();
      *bytes = got.data();
      return static_cast<la_ssize_t>(got.size());
    } catch (const std::exception& error) {
      stream.reason = error.what();
      return ARCHIVE_FATAL;
    }
  }

  std::string reason;  // why read() failed

 private:
  struct Buffer {
    std::unique_ptr<char[]> bytes;
    size_t size = 0;  // 0: the end
  };

  static std::string_view view(const Buffer& buffer) { return {buffer.bytes.get(), buffer.size}; }

  void fill(Buffer& buffer) {
    if (buffer.bytes == nullptr) buffer.bytes = std::make_unique_for_overwrite<char[]>(gzip_buffer);
    const int got = library().gzread(stream_, buffer.bytes.get(), static_cast<unsigned>(gzip_buffer));
    int status = Z_OK;
    const char* text = library().gzerror(stream_, &status);
    if (got < 0) throw exc::error_t(text);
    if (got == 0 && status != Z_OK && status != Z_STREAM_END) throw exc::error_t("it ends too early");
    if (library().gzdirect(stream_) != 0) throw exc::error_t("it is not compressed with gzip");
    total_ += static_cast<uint64_t>(got);
    if (total_ > limit_) throw exc::error_t("it holds far more than its entries say");
    buffer.size = static_cast<size_t>(got);
  }

  // Fills one buffer after the other until the end, a failure, or nobody wants any more.
  void run_ahead() {
    std::unique_lock lock(guard_);
    for (bool is_over = false; !is_over;) {
      changed_.wait(lock, [&] { return stop_ || filled_ - taken_ < buffers_.size(); });
      if (stop_) return;
      Buffer& buffer = buffers_[filled_ % buffers_.size()];
      lock.unlock();
      std::exception_ptr failure;
      try {
        fill(buffer);
      } catch (...) {
        failure = std::current_exception();
      }
      lock.lock();
      is_over = failure != nullptr || buffer.size == 0;
      failure_ = failure;
      if (failure == nullptr) ++filled_;
      changed_.notify_all();
    }
  }

  gzFile stream_;
  uint64_t limit_;
  uint64_t total_ = 0;
  std::array<Buffer, 4> buffers_;

  std::mutex guard_;
  std::condition_variable changed_;
  size_t filled_ = 0;
  size_t taken_ = 0;
  bool is_looked_at_ = false;
  bool stop_ = false;
  std::exception_ptr failure_;
  std::thread ahead_;
};

struct Format {
  const char* name;
  int (*enable)(archive*);
  bool gzipped;
};

class Extraction {
 public:
  Extraction(const Format& format, const fs::path& path, const fs::path& folder, const Limits& limits)
      : format_(format), path_(path), folder_(folder), limits_(limits) {}

  std::vector<Entry> run() {
    struct stat state {};
    sys::Descriptor file = sys::open_regular(path_, state);
    set_allowance(static_cast<uint64_t>(state.st_size));
    open(file);
    archive_entry* entry = nullptr;
    while (next(&entry)) extract(entry);
    try {
      if (gzip_) gzip_->finish();
    } catch (const exc::error_t& error) {
      fail_damaged(error.what());
    }
    std::vector<Entry> files;
    for (const auto& [name, size] : sizes_) files.push_back({name, size});
    return files;
  }

 private:
  struct Free {
    void operator()(archive* opened) const { library().archive_read_free(opened); }
  };

  [[noreturn]] void refuse(std::string_view why) const {
    throw exc::error_t(fmt::format("The archive '{}' is refused: {}", path_.string(), why));
  }
  [[noreturn]] void fail_damaged(std::string_view why) const {
    throw exc::error_t(
        fmt::format("'{}' is damaged or not a {} archive: {}", path_.string(), format_.name, why));
  }
  [[noreturn]] void fail_locked() const {
    throw exc::error_t(fmt::format(
        "The archive '{}' is protected by a password: unpack it and open the files inside", path_.string()));
  }
  // What libarchive has to say after a failure.
  [[noreturn]] void fail() const {
    if (gzip_ && !gzip_->reason.empty()) fail_damaged(gzip_->reason);
    // Asked before a format is chosen, this reads what was never set.
    if (is_open_ && library().archive_read_has_encrypted_entries(archive_.get()) == 1) fail_locked();
    const char* reason = library().archive_error_string(archive_.get());
    const std::string_view text = reason != nullptr ? reason : "no reason given";
    if (text.find("ncrypt") != text.npos || text.find("assphrase") != text.npos) fail_locked();
    fail_damaged(text);
  }

  void set_allowance(uint64_t archive_size) {
    by_ratio_ = limits_.bytes;
    if (by_ratio_ == 0) by_ratio_ = std::max(always_allowed, archive_size * largest_ratio);
    const uint64_t available = fs::space(folder_).available;
    by_disk_ = available > disk_reserve ? available - disk_reserve : 0;
  }

  void open(sys::Descriptor& file) {
    archive_.reset(library().archive_read_new());
    if (!archive_) throw std::bad_alloc();
    if (format_.enable(archive_.get()) != ARCHIVE_OK) fail();
    int opened = ARCHIVE_OK;
    if (format_.gzipped) {
      gzip_ =
          std::make_unique<GzipStream>(file, std::min(by_ratio_, by_disk_) + limits_.entries * tar_overhead);
      opened = library().archive_read_open(archive_.get(), gzip_.get(), nullptr, GzipStream::read, nullptr);
    } else {
      file_ = std::make_unique<sys::Descriptor>(std::move(file));
      opened = library().archive_read_open_fd(archive_.get(), file_->get(), gzip_buffer);
    }
    if (opened != ARCHIVE_OK) fail();
    is_open_ = true;
  }

  bool next(archive_entry** entry) {
    const int status = library().archive_read_next_header(archive_.get(), entry);
    if (status == ARCHIVE_EOF) return false;
    if (status != ARCHIVE_OK && status != ARCHIVE_WARN) fail();
    if (++entries_ > limits_.entries) refuse(fmt::format("it holds more than {} entries", limits_.entries));
    return true;
  }

  std::string name_of(archive_entry* entry) const {
    const char* raw = library().archive_entry_pathname_utf8(entry);
    if (raw == nullptr) raw = library().archive_entry_pathname(entry);
    if (raw == nullptr) refuse(fmt::format("entry {} has a name that cannot be read", entries_));
    try {
      return entry_name(raw);
    } catch (const exc::error_t& error) {
      refuse(error.what());
    }
  }

  void extract(archive_entry* entry) {
    const std::string name = name_of(entry);
    const auto type = library().archive_entry_filetype(entry);
    if (library().archive_entry_hardlink(entry) != nullptr || (type != AE_IFREG && type != AE_IFDIR)) {
      log::write(log::warning, fmt::format("'{}': entry '{}' is a link or a device and was left out",
                                           path_.string(), name));
      return;
    }
    if (type == AE_IFDIR) {
      make_folder(name);
      return;
    }
    if (name.empty()) refuse("it holds a file without a name");
    if (library().archive_entry_is_encrypted(entry) != 0) fail_locked();
    if (const size_t slash = name.rfind('/'); slash != name.npos) make_folder(name.substr(0, slash));
    write_file(entry, name);
  }

  void make_folder(const std::string& name) {
    if (name.empty() || !folders_.insert(name).second) return;
    if (folders_.size() > limits_.entries)
      refuse(fmt::format("it holds more than {} folders", limits_.entries));
    std::error_code error;
    fs::create_directories(folder_ / name, error);
    if (error == std::errc::not_a_directory || error == std::errc::file_exists) {
      refuse(fmt::format("'{}' is a file and a folder", name));
    }
    if (error) sys::fail("create", folder_ / name, error.value());
  }

  void write_file(archive_entry* entry, const std::string& name) {
    const fs::path path = folder_ / name;
    // The folder is ours and holds no links; a later entry of the same name replaces the earlier one.
    const sys::Descriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file && errno == EISDIR) refuse(fmt::format("'{}' is a file and a folder", name));
    if (!file) sys::fail("create", path, errno);
    uint64_t size = 0;
    uint64_t sent = 0;  // to the disk
    for (;;) {
      const void* bytes = nullptr;
      size_t length = 0;
      la_int64_t offset = 0;
      const int status = library().archive_read_data_block(archive_.get(), &bytes, &length, &offset);
      if (status == ARCHIVE_EOF) break;
      if (status != ARCHIVE_OK) fail();  // a warning is a wrong checksum
      if (offset < 0) fail_damaged("it has content before the start of a file");
      grow(size, static_cast<uint64_t>(offset), length);
      write_all(file, path, static_cast<const char*>(bytes), length, offset);
      if (limits_.durable && size - sent >= to_disk_at_once) {
        send_to_disk(file, sent, size - sent);
        sent = size;
      }
    }
    if (library().archive_entry_size_is_set(entry) != 0) {
      const la_int64_t stated = library().archive_entry_size(entry);
      if (stated > 0 && static_cast<uint64_t>(stated) > size) {  // a hole at the end
        grow(size, static_cast<uint64_t>(stated), 0);
        if (ftruncate(file.get(), stated) != 0) sys::fail("write", path, errno);
      }
    }
    if (limits_.durable && fdatasync(file.get()) != 0) sys::fail("write", path, errno);
    sizes_[name] = size;
  }

  // A file of `size` bytes gets content up to offset + length; throws when that is too much.
  void grow(uint64_t& size, uint64_t offset, uint64_t length) {
    if (length > UINT64_MAX - offset) fail_damaged("a file has no sensible size");
    const uint64_t end = offset + length;
    if (end <= size) return;
    const uint64_t more = end - size;
    if (more > by_ratio_ - std::min(by_ratio_, total_)) {
      refuse(fmt::format("it unpacks to more than {} MiB, which no recorded data of its size does",
                         by_ratio_ >> 20));
    }
    if (more > by_disk_ - std::min(by_disk_, total_)) {
      throw exc::error_t(
          fmt::format("There is not enough room in '{}' to unpack '{}': make room on that disk",
                      folder_.string(), path_.string()));
    }
    total_ += more;
    size = end;
  }

  // Has the disk begin with what is written, so that there is little left to wait for at the end.
  static void send_to_disk(const sys::Descriptor& file, uint64_t offset, uint64_t length) {
    ::sync_file_range(file.get(), static_cast<off_t>(offset), static_cast<off_t>(length),
                      SYNC_FILE_RANGE_WRITE);  // a hint; fdatasync reports failures
  }

  static void write_all(const sys::Descriptor& file, const fs::path& path, const char* bytes, size_t length,
                        la_int64_t offset) {
    while (length > 0) {
      const ssize_t written = ::pwrite(file.get(), bytes, length, offset);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) sys::fail("write", path, errno);
      bytes += written;
      offset += written;
      length -= static_cast<size_t>(written);
    }
  }

  const Format& format_;
  const fs::path& path_;
  const fs::path& folder_;
  const Limits& limits_;
  const Utf8Names utf8_names_;
  bool is_open_ = false;
  uint64_t by_ratio_ = 0;
  uint64_t by_disk_ = 0;
  uint64_t total_ = 0;
  uint64_t entries_ = 0;
  std::set<std::string> folders_;
  std::map<std::string, uint64_t> sizes_;
  std::unique_ptr<sys::Descriptor> file_;
  std::unique_ptr<GzipStream> gzip_;
  std::unique_ptr<archive, Free> archive_;  // goes first: it reads from the others
};

}  // namespace

std::vector<Entry> extract_7zip(const fs::path& path, const fs::path& folder, const Limits& limits) {
  return Extraction({"7z", library().archive_read_support_format_7zip, false}, path, folder, limits).run();
}

std::vector<Entry> extract_zip(const fs::path& path, const fs::path& folder, const Limits& limits) {
  return Extraction({"zip", library().archive_read_support_format_zip_seekable, false}, path, folder, limits)
      .run();
}

std::vector<Entry> extract_tgz(const fs::path& path, const fs::path& folder, const Limits& limits) {
  return Extraction({"tar.gz", library().archive_read_support_format_tar, true}, path, folder, limits).run();
}

}  // namespace mirn3::zip
