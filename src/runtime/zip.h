// Extracting archives into a folder: zip, 7z and gzipped tar, one implementation over libarchive, which is
// opened with the first archive.
//
// An archive is never trusted: what is extracted stays inside the folder, holds only regular files and
// folders, and is bounded in bytes and in number. docs/formats/archives.md says what happens to odd entries.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "kvalo/export.h"

namespace mirn3::zip {

struct Limits {
  uint64_t bytes = 0;          // of all files together; 0: decided by the archive's size and the free disk
  uint64_t entries = 100'000;  // files and folders
  bool durable = false;        // files are on the disk, not only in the system's memory, at the end
};

struct Entry {
  std::string name;  // below the folder, with / between folders; valid UTF-8 without control characters
  uint64_t size = 0;
};

// Each extracts the archive into an empty folder that exists and returns its files in name order. Throws
// exc::error_t with the archive's name: damaged, protected by a password, an entry that leaves the folder,
// beyond a limit, libarchive missing. What was extracted until then stays.
MIRN3_API std::vector<Entry> extract_7zip(const std::filesystem::path& archive,
                                          const std::filesystem::path& folder, const Limits& limits = {});
MIRN3_API std::vector<Entry> extract_zip(const std::filesystem::path& archive,
                                         const std::filesystem::path& folder, const Limits& limits = {});
MIRN3_API std::vector<Entry> extract_tgz(const std::filesystem::path& archive,
                                         const std::filesystem::path& folder, const Limits& limits = {});

}  // namespace mirn3::zip
