// Archives as sources: which file inside is read, and which path a script sees for it.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "readers/reader.h"

namespace mirn2 {

// One extracted archive: its folder in the cache, and the files found there.
struct Extraction {
  std::filesystem::path folder;
  std::vector<std::filesystem::path> files;
  // Made for its files. Two archives with the same content share the files, never the readers.
  std::vector<std::weak_ptr<rd::Reader>> readers;
};

// By the archive's path.
using ArchiveTable = std::unordered_map<std::string, Extraction>;

// The table of this process; null before start-up and after teardown.
extern ArchiveTable* archive_table;

// Archives within archives: how deep the choice of a reader is, and how many it has opened on the way.
struct Nesting {
  static constexpr int deepest = 4;
  static constexpr int most_archives = 32;

  int depth = 0;
  int archives = 0;
};

// Chooses the reader of an extracted file, which may be an archive again. Throws when there is none.
using ChooseReader = std::shared_ptr<rd::Reader> (*)(const std::filesystem::path& path, Nesting& nesting);

// The reader of the first file in the archive, in name order, that can be read; null when the path does not
// end like an archive's. Extracts into the cache without the interpreter lock. Throws mirn3::exc::error_t.
std::shared_ptr<rd::Reader> reader_in_archive(const std::filesystem::path& path, Nesting& nesting,
                                              ChooseReader choose);

// The path under which a script knows a reader's source: that of the archive it was extracted from, if any.
std::filesystem::path source_path(const rd::Reader& reader);

}  // namespace mirn2
