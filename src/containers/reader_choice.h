// Which reader serves a source.
//
// The readers that these functions return are not scanned yet. All throw mirn3::exc::error_t.
#pragma once

#include <filesystem>
#include <memory>

#include "readers/reader.h"

namespace mirn2 {

// The reader of a file: the first rule that applies decides (docs/reader-choice.md lists them).
std::shared_ptr<rd::Reader> choose_reader(const std::filesystem::path& path);

// The reader of a file that a named plug-in reads.
std::shared_ptr<rd::Reader> plugin_reader(const std::filesystem::path& path,
                                          const std::filesystem::path& plugin);

// The reader of a plug-in's live source.
std::shared_ptr<rd::Reader> realtime_reader(const std::filesystem::path& plugin);

}  // namespace mirn2
