// Archives as sources: extracts one and picks the file that is read.
#include "containers/archives.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <new>

#include "objects/frame.h"
#include "readers/delimited.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/sys.h"
#include "runtime/zip_cache.h"

namespace mirn2 {

ArchiveTable* archive_table = nullptr;

namespace {

namespace fs = std::filesystem;
using mirn3::exc::error_t;
using ReaderPtr = std::shared_ptr<rd::Reader>;

struct ArchiveFormat {
  const char* extension;
  mirn3::zip::Extract extract;
};
constexpr ArchiveFormat archive_formats[] = {
    {".7z", mirn3::zip::extract_7zip},
    {".zip", mirn3::zip::extract_zip},
    {".tar.gz", mirn3::zip::extract_tgz},
};

class Deeper {
 public:
  explicit Deeper(Nesting& nesting) : nesting_(nesting) { ++nesting_.depth; }
  ~Deeper() { --nesting_.depth; }
  Deeper(const Deeper&) = delete;
  Deeper& operator=(const Deeper&) = delete;

 private:
  Nesting& nesting_;
};

// Files that programs add to the data: names that begin with a point, and resource forks.
bool is_hidden(const fs::path& file) {
  return std::any_of(file.begin(), file.end(), [](const fs::path& part) {
    return part.native().starts_with('.') || part == "__MACOSX";
  });
}

// Whether the reader chosen for a file finds variables in it. The delimited-text reader was chosen by
// content.
bool is_readable(const fs::path& file, const rd::Reader& chosen, Nesting& nesting, ChooseReader choose) {
  if (dynamic_cast<const rd::ReaderDelimited*>(&chosen) != nullptr) return true;
  const ReaderPtr trial = choose(file, nesting);  // a reader is scanned only once
  without_gil([&] { trial->scan(); });
  return !trial->variables().empty();
}

ReaderPtr first_readable(const fs::path& archive, const mirn3::zip::Extracted& extracted, Nesting& nesting,
                         ChooseReader choose) {
  std::string reason = "it is empty";
  for (const fs::path& file : extracted.files) {
    if (is_hidden(file.lexically_relative(extracted.folder))) continue;
    try {
      const Deeper level(nesting);
      ReaderPtr reader = choose(file, nesting);
      if (extracted.files.size() == 1 || is_readable(file, *reader, nesting, choose)) return reader;
      reason = "no file holds variables";
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const python_error&) {
      throw;  // an interruption
    } catch (const std::exception& error) {
      mirn3::log::write(mirn3::log::info, fmt::format("'{:s}' in '{:s}' was skipped: {:s}", file.string(),
                                                      archive.string(), error.what()));
      reason = error.what();
    }
  }
  throw error_t(fmt::format("No file in the archive '{:s}' can be read: {:s}", archive.string(), reason));
}

}  // namespace

ReaderPtr reader_in_archive(const fs::path& path, Nesting& nesting, ChooseReader choose) {
  const auto* format =
      std::find_if(std::begin(archive_formats), std::end(archive_formats),
                   [&](const auto& row) { return mirn3::sys::ext_check(path, row.extension); });
  if (format == std::end(archive_formats)) return nullptr;
  if (nesting.depth >= Nesting::deepest) {
    throw error_t(fmt::format("'{:s}' is inside too many archives: unpack them", path.string()));
  }
  if (++nesting.archives > Nesting::most_archives) {
    throw error_t("There are too many archives within archives: unpack the outer one");
  }
  const mirn3::zip::Extracted extracted =
      without_gil([&] { return mirn3::zip::extract_to_cache(path, format->extract); });
  const bool is_outermost = nesting.depth == 0 && archive_table != nullptr;
  if (is_outermost) {
    Extraction& record = (*archive_table)[path.string()];
    record.folder = extracted.folder;
    record.files = extracted.files;
  }
  ReaderPtr reader = first_readable(path, extracted, nesting, choose);
  if (is_outermost) {
    auto& readers = (*archive_table)[path.string()].readers;
    std::erase_if(readers, [](const auto& known) { return known.expired(); });
    readers.push_back(reader);
  }
  return reader;
}

fs::path source_path(const rd::Reader& reader) {
  if (archive_table == nullptr) return reader.path();
  for (const auto& [archive_path, extraction] : *archive_table) {
    for (const auto& known : extraction.readers) {
      if (known.lock().get() == &reader) return archive_path;
    }
  }
  return reader.path();
}

}  // namespace mirn2
