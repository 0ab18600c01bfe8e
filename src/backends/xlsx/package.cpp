// Opens a workbook file as a zip archive and reads its parts.
#include "backends/xlsx/package.h"

#include <fmt/format.h>
#include <minizip/unzip.h>

#include <array>
#include <fstream>
#include <limits>

#include "runtime/exc.h"

namespace mirn2::rd::xlsx {

namespace {

using mirn3::exc::error_t;

constexpr uint64_t most_parts = 100'000;

// Deflate makes a byte of at most 1032; sheets shrink to a tenth.
constexpr uint64_t always_allowed = uint64_t{256} << 20;
constexpr uint64_t largest_ratio = 300;

std::string key_of(std::string_view part) {
  if (part.starts_with('/')) part.remove_prefix(1);
  std::string key(part);
  for (char& c : key) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    if (c == '\\') c = '/';
  }
  return key;
}

// Workbooks with a password are wrapped into the container that older workbooks have too.
[[noreturn]] void fail_to_open(const std::filesystem::path& path) {
  constexpr std::string_view wrapped("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1");
  std::array<char, 8> head{};
  std::ifstream(path, std::ios::binary).read(head.data(), head.size());
  if (std::string_view(head.data(), head.size()) == wrapped) {
    throw error_t(fmt::format(
        "'{:s}' is protected by a password, or an older workbook: save it as .xlsx without a password",
        path.string()));
  }
  throw error_t(fmt::format("'{:s}' is damaged or not an XLSX workbook", path.string()));
}

}  // namespace

class Package::Part : public ByteSource {
 public:
  Part(const Package& package, std::string_view name, const Place& place)
      : package_(package), file_(package.file_.get()), name_(name) {
    unz64_file_pos position{place.offset, place.number};
    unz_file_info64 info{};
    if (unzGoToFilePos64(file_, &position) != UNZ_OK ||
        unzGetCurrentFileInfo64(file_, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) {
      fail("its directory is damaged");
    }
    if ((info.flag & 1) != 0) fail("it is protected by a password");
    if (unzOpenCurrentFile(file_) != UNZ_OK) fail("it is damaged, or packed in an unusual way");
  }
  ~Part() override { unzCloseCurrentFile(file_); }

  size_t read(char* room, size_t size) override {
    const int got = unzReadCurrentFile(file_, room, static_cast<unsigned>(std::min<size_t>(size, 1 << 30)));
    if (got < 0) fail("it is damaged");
    total_ += static_cast<uint64_t>(got);
    if (total_ > package_.largest_part_) fail("it unpacks to more than a workbook of this size holds");
    // Closing at the end tells whether the checksum was right.
    if (got == 0 && size > 0 && unzCloseCurrentFile(file_) == UNZ_CRCERROR) fail("it is damaged (checksum)");
    return static_cast<size_t>(got);
  }

 private:
  [[noreturn]] void fail(const char* why) const {
    throw error_t(
        fmt::format("'{:s}' cannot be read: part '{:s}': {:s}", package_.path_.string(), name_, why));
  }

  const Package& package_;
  unzFile file_;
  std::string name_;
  uint64_t total_ = 0;
};

Package::Package(const std::filesystem::path& path) : path_(path) {
  file_ = std::shared_ptr<void>(unzOpen2_64(path.c_str(), nullptr), [](void* file) {
    if (file != nullptr) unzClose(file);
  });
  if (!file_) fail_to_open(path);
  std::error_code unknown;
  const uint64_t size = std::filesystem::file_size(path, unknown);
  largest_part_ = std::max(always_allowed, unknown ? 0 : size * largest_ratio);

  std::array<char, 1024> name{};
  uint64_t count = 0;
  for (int status = unzGoToFirstFile(file_.get()); status == UNZ_OK; status = unzGoToNextFile(file_.get())) {
    unz_file_info64 info{};
    unz64_file_pos position{};
    // Longer names cannot be parts that are asked for.
    if (unzGetCurrentFileInfo64(file_.get(), &info, name.data(), name.size() - 1, nullptr, 0, nullptr, 0) !=
            UNZ_OK ||
        unzGetFilePos64(file_.get(), &position) != UNZ_OK || ++count > most_parts) {
      throw error_t(fmt::format("'{:s}' is damaged: its directory cannot be read", path.string()));
    }
    const size_t length = std::min<size_t>(info.size_filename, name.size() - 1);
    parts_.try_emplace(key_of({name.data(), length}),
                       Place{position.pos_in_zip_directory, position.num_of_file});
  }
}

bool Package::contains(std::string_view part) const { return parts_.contains(key_of(part)); }

std::unique_ptr<ByteSource> Package::open(std::string_view part) const {
  const auto found = parts_.find(key_of(part));
  if (found == parts_.end()) {
    throw error_t(fmt::format("'{:s}' is damaged or not an XLSX workbook: part '{:s}' is missing",
                              path_.string(), part));
  }
  return std::make_unique<Part>(*this, part, found->second);
}

}  // namespace mirn2::rd::xlsx
