// Extracted archives in the cache folder: extracted once, found again by the content of the archive, whatever
// its path. docs/on-disk.md describes the folders.
#pragma once

#include <filesystem>
#include <vector>

#include "kvalo/export.h"
#include "runtime/zip.h"

namespace mirn3::zip {

struct Extracted {
  std::filesystem::path folder;
  std::vector<std::filesystem::path> files;  // in name order
};

using Extract = std::vector<Entry> (*)(const std::filesystem::path& archive,
                                       const std::filesystem::path& folder, const Limits& limits);

// Where the archive's files lie; extracts it with `extract` unless that was done before. Safe with several
// processes and threads, and across a kill at any moment. Throws exc::error_t like `extract`, and
// std::filesystem::filesystem_error where the cache folder cannot be created.
MIRN3_API Extracted extract_to_cache(const std::filesystem::path& archive, Extract extract);

}  // namespace mirn3::zip
