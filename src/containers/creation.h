// From a path to a container: which reader serves a source, and how the container is put together.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "containers/container.h"
#include "containers/derived_readers.h"

namespace mirn2 {

// One unpacked archive: where it was unpacked to, and the files found there.
struct Extraction {
  std::filesystem::path folder;
  std::vector<std::filesystem::path> files;
  // Made over its files. Two archives with the same content share the files, never the readers.
  std::vector<std::weak_ptr<rd::Reader>> readers;
};

// By the archive's path.
using ArchiveTable = std::unordered_map<std::string, Extraction>;

// The table of this process; null before start-up and after teardown.
extern ArchiveTable* archive_table;

// The reader for a file, chosen by the first rule that applies (docs/reader-choice.md lists them);
// not scanned yet. Throws mirn3::exc::error_t.
std::shared_ptr<rd::Reader> create_reader_from_file(const std::filesystem::path& path);

// The reader that a named plug-in gives for a file. Throws mirn3::exc::error_t.
std::shared_ptr<rd::Reader> create_reader_from_file(const std::filesystem::path& path,
                                                    const std::filesystem::path& plugin);

// The reader of a live source. Throws mirn3::exc::error_t.
std::shared_ptr<rd::Reader> create_reader_from_realtime(const std::filesystem::path& plugin);

// A container over the file, with its variables; entered into the registry with them if `enter` is
// set. On failure reports Python's Exception "Error while loading file '...': ..." and returns null,
// with nothing left in the registry.
std::shared_ptr<Container> create_container_from_file(const std::filesystem::path& path, bool enter);
std::shared_ptr<Container> create_container_from_file(const std::filesystem::path& path,
                                                      const std::filesystem::path& plugin);
std::shared_ptr<Container> create_container_from_realtime(const std::filesystem::path& plugin);

// A container over the variables of another one between two times, entered into the registry. Throws
// mirn3::exc::error_t.
std::shared_ptr<Container> create_container_from_window(const Container& whole, rd::TimeWindow window);

// The path under which a reader's source is known to the script: the archive it was unpacked from.
std::filesystem::path source_path(const rd::Reader& reader);

}  // namespace mirn2
