// The workbook file as a package: a zip archive whose entries ("parts") are XML documents.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "backends/xlsx/byte_source.h"

namespace mirn2::rd::xlsx {

class Package {
 public:
  // Throws mirn3::exc::error_t: not a zip archive, protected by a password, damaged.
  explicit Package(const std::filesystem::path& path);

  bool contains(std::string_view part) const;

  // The content of a part, to be read once. One part at a time; the package must outlive it. Throws
  // mirn3::exc::error_t when it is missing, and while it is read when it is damaged or would decompress to
  // more than a workbook of this size can hold.
  std::unique_ptr<ByteSource> open(std::string_view part) const;

 private:
  class Part;
  struct Place {
    uint64_t offset;
    uint64_t number;
  };

  std::filesystem::path path_;
  std::shared_ptr<void> file_;
  uint64_t largest_part_ = 0;
  std::unordered_map<std::string, Place> parts_;  // by name in lower case, as names ignore case
};

}  // namespace mirn2::rd::xlsx
