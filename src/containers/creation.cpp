// Reader choice and container assembly.
#include "containers/creation.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>

#include "containers/bank.h"
#include "containers/derived_readers.h"
#include "containers/python_plugin.h"
#include "kernels/coding_name.h"
#include "objects/frame.h"
#include "readers/ardupilot_bin.h"
#include "readers/ardupilot_txt.h"
#include "readers/backend.h"
#include "readers/delimited.h"
#include "readers/plugin_native.h"
#include "readers/wav.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/sys.h"
#include "runtime/sys_plugin.h"
#include "runtime/unpack.h"
#include "runtime/zip_cache.h"

#ifndef KVALO_PYARROW_VERSION
#define KVALO_PYARROW_VERSION "26.0"  // built without the package
#endif

namespace mirn2 {

ArchiveTable* archive_table = nullptr;

namespace {

namespace fs = std::filesystem;
namespace sys = mirn3::sys;
using mirn3::exc::error_t;
using ReaderPtr = std::shared_ptr<rd::Reader>;

constexpr const char* incompatible = "File is not compatible with any built-in loaders or plugins";

// Archives within archives: how deep we are, and how many were opened on the way.
struct Nesting {
  static constexpr int deepest = 4;
  static constexpr int most_archives = 32;

  int depth = 0;
  int archives = 0;
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

// What the rules look at, gathered as they need it.
struct Candidate {
  fs::path path;
  Nesting& nesting;
  std::string explanation;  // why the likeliest reader did not fit, for the log

  // The first bytes of the file; fewer when it is shorter.
  std::string head(size_t n) const {
    std::ifstream file(path, std::ios::binary);
    std::string bytes(n, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(n));
    bytes.resize(static_cast<size_t>(file.gcount()));
    return bytes;
  }

  bool has_extension(std::string_view extension) const { return sys::ext_check(path, extension); }
};

// A format that is recognised in its place, for which there is no reader in this version.
template <typename Format>
ReaderPtr not_yet(const Candidate& candidate, Format format) {
  throw error_t(
      fmt::format("'{:s}' is {:s}, which this version cannot read yet", candidate.path.string(), format));
}

constexpr rd::Backend xlsx_backend{"xlsx", "XLSX workbooks", "install the package libminizip1"};

// HDF5 files carry their signature at offset 0 or at a power of two from 512 on.
bool is_hdf5(const Candidate& candidate) {
  constexpr std::string_view signature("\x89HDF\r\n\x1a\n", 8);
  std::ifstream file(candidate.path, std::ios::binary);
  std::array<char, 8> bytes;
  for (uint64_t offset = 0;; offset = offset == 0 ? 512 : offset * 2) {
    if (!file.seekg(static_cast<std::streamoff>(offset)) || !file.read(bytes.data(), bytes.size()))
      return false;
    if (std::string_view(bytes.data(), bytes.size()) == signature) return true;
  }
}

bool first_line_has_fmt(const Candidate& candidate) {
  const std::string text = candidate.head(4096);
  const std::string_view line = std::string_view(text).substr(0, text.find('\n'));
  return std::string_view(line.data(), strnlen(line.data(), line.size())).find("FMT, ") !=
         std::string_view::npos;
}

ReaderPtr native_plugin(const Candidate& candidate) {
  auto plugin = without_gil([&] { return sys::plugin_compatible(candidate.path); });
  return plugin ? std::make_shared<rd::ReaderPluginDLLFile>(candidate.path, std::move(plugin)) : nullptr;
}
ReaderPtr python_plugin(const Candidate& candidate) {
  Ref module = mirn4::pyd::plugin_compatible(candidate.path);
  return module ? std::make_shared<rd::ReaderPluginPYDFile>(candidate.path, std::move(module)) : nullptr;
}

struct ArchiveFormat {
  const char* extension;
  mirn3::zip::Extract extract;
};
constexpr ArchiveFormat archive_formats[] = {
    {".7z", mirn3::zip::extract_7zip},
    {".zip", mirn3::zip::extract_zip},
    {".tar.gz", mirn3::zip::extract_tgz},
};

ReaderPtr choose_reader(const fs::path& path, Nesting& nesting);

// What programs put beside the data: names that begin with a point, and resource forks.
bool is_hidden(const fs::path& file) {
  return std::any_of(file.begin(), file.end(), [](const fs::path& part) {
    return part.native().starts_with('.') || part == "__MACOSX";
  });
}

// Whether a reader that was chosen for the name of its file alone can do something with it.
bool is_readable(const fs::path& file, const rd::Reader& chosen, Nesting& nesting) {
  if (dynamic_cast<const rd::ReaderDelimited*>(&chosen) != nullptr) return true;
  const ReaderPtr trial = choose_reader(file, nesting);  // a reader is scanned once only
  without_gil([&] { trial->scan(); });
  return !trial->variables().empty();
}

// The first file that can be read, in name order.
ReaderPtr first_readable(const Candidate& candidate, const mirn3::zip::Unpacked& unpacked) {
  std::string reason = "it is empty";
  Nesting& nesting = candidate.nesting;
  for (const fs::path& file : unpacked.files) {
    if (is_hidden(file.lexically_relative(unpacked.folder))) continue;
    try {
      const Deeper level(nesting);
      ReaderPtr reader = choose_reader(file, nesting);
      if (unpacked.files.size() == 1 || is_readable(file, *reader, nesting)) return reader;
      reason = "no file holds variables";
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const python_error&) {
      throw;  // an interruption
    } catch (const std::exception& error) {
      mirn3::log::write(mirn3::log::info, fmt::format("'{:s}' in '{:s}' was passed over: {:s}", file.string(),
                                                      candidate.path.string(), error.what()));
      reason = error.what();
    }
  }
  throw error_t(
      fmt::format("No file in the archive '{:s}' can be read: {:s}", candidate.path.string(), reason));
}

ReaderPtr archive(const Candidate& candidate) {
  const auto* format = std::find_if(std::begin(archive_formats), std::end(archive_formats),
                                    [&](const auto& row) { return candidate.has_extension(row.extension); });
  if (format == std::end(archive_formats)) return nullptr;
  Nesting& nesting = candidate.nesting;
  if (nesting.depth >= Nesting::deepest) {
    throw error_t(fmt::format("'{:s}' lies in too many archives: unpack them", candidate.path.string()));
  }
  if (++nesting.archives > Nesting::most_archives) {
    throw error_t("There are too many archives within archives: unpack the outer one");
  }
  const mirn3::zip::Unpacked unpacked =
      without_gil([&] { return mirn3::zip::unpack_to_cache(candidate.path, format->extract); });
  if (nesting.depth == 0 && archive_table != nullptr) {
    Extraction& record = (*archive_table)[candidate.path.string()];
    record.folder = unpacked.folder;
    record.files = unpacked.files;
  }
  ReaderPtr reader = first_readable(candidate, unpacked);
  if (nesting.depth == 0 && archive_table != nullptr) {
    auto& readers = (*archive_table)[candidate.path.string()].readers;
    std::erase_if(readers, [](const auto& known) { return known.expired(); });
    readers.push_back(reader);
  }
  return reader;
}

ReaderPtr not_a_regular_file(const Candidate& candidate) {
  const fs::file_status status = fs::symlink_status(candidate.path);
  if (fs::is_regular_file(status)) return nullptr;
  if (fs::is_symlink(status)) {
    mirn3::log::write(mirn3::log::warning, fmt::format("'{:s}' is a link; load the file it points to instead",
                                                       candidate.path.string()));
  }
  throw error_t(incompatible);
}

ReaderPtr hdf5(const Candidate& candidate) {
  static const rd::Backend backend{"hdf5", "HDF5 files", "install the package libhdf5-103-1"};
  return is_hdf5(candidate) ? rd::make_backend_reader(backend, candidate.path) : nullptr;
}
ReaderPtr mat(const Candidate& candidate) {
  static const rd::Backend backend{"mat", "MAT files", "install the package zlib1g"};
  return candidate.has_extension(".mat") ? rd::make_backend_reader(backend, candidate.path) : nullptr;
}
ReaderPtr xlsx(const Candidate& candidate) {
  return candidate.has_extension(".xlsx") ? rd::make_backend_reader(xlsx_backend, candidate.path) : nullptr;
}
ReaderPtr delimited(const Candidate& candidate) {
  const char delimiter = rd::probe_delimiter(candidate.path, &const_cast<Candidate&>(candidate).explanation);
  return delimiter != 0 ? std::make_shared<rd::ReaderDelimited>(candidate.path, delimiter) : nullptr;
}
ReaderPtr parquet(const Candidate& candidate) {
  static constexpr rd::Backend backend = {
      "parquet", "Parquet files",
      "the package pyarrow, version " KVALO_PYARROW_VERSION
      ", is needed; install it with: pip install 'pyarrow==" KVALO_PYARROW_VERSION
      ".*' (where it is installed but not beside kvalo: import it first)"};
  const bool is_parquet = candidate.has_extension(".parquet") || candidate.head(4) == "PAR1";
  return is_parquet ? rd::make_backend_reader(backend, candidate.path) : nullptr;
}
ReaderPtr ardupilot_bin(const Candidate& candidate) {
  const bool is_log = candidate.head(89).starts_with("\xA3\x95");
  return is_log ? std::make_shared<rd::ReaderArduPilotBIN>(candidate.path) : nullptr;
}
ReaderPtr ardupilot_txt(const Candidate& candidate) {
  return first_line_has_fmt(candidate) ? std::make_shared<rd::ReaderArduPilotTXT>(candidate.path) : nullptr;
}
ReaderPtr wav(const Candidate& candidate) {
  if (!candidate.has_extension(".wav")) return nullptr;
  if (!rd::probe_wav(candidate.path, &const_cast<Candidate&>(candidate).explanation)) return nullptr;
  return std::make_shared<rd::ReaderWAV>(candidate.path);
}

// The rules in their order: each gives a reader, passes (null), or throws.
using Rule = ReaderPtr (*)(const Candidate&);
constexpr Rule rules[] = {
    native_plugin, python_plugin, archive, not_a_regular_file, hdf5,          mat,
    xlsx,          delimited,     parquet, ardupilot_bin,      ardupilot_txt, wav,
};

ReaderPtr choose_reader(const fs::path& path, Nesting& nesting) {
  Candidate candidate{.path = path, .nesting = nesting, .explanation = {}};
  if (!sys::exists(candidate.path)) throw error_t(fmt::format("File {} not found", candidate.path.string()));
  for (const Rule rule : rules) {
    if (ReaderPtr reader = rule(candidate)) return reader;
  }
  if (!candidate.explanation.empty()) mirn3::log::write(mirn3::log::warning, candidate.explanation);
  throw error_t(incompatible);
}

fs::path normalised(fs::path path) { return path.make_preferred(); }

// The kinds of plug-in, by their extension.
bool is_native(const fs::path& plugin) {
  return sys::ext_check(plugin, ".so") || sys::ext_check(plugin, ".dll");
}
bool is_python(const fs::path& plugin) {
  return sys::ext_check(plugin, ".py") || sys::ext_check(plugin, ".pyd");
}

void require_plugin(const fs::path& plugin) {
  if (sys::find_plugin(plugin).empty()) {
    throw error_t(fmt::format("Plugin {:s} not found", plugin.string()));
  }
}

// The variables that bit-field definitions add.
void add_unpacked(Container& container) {
  mirn3::unpack::load();
  if (mirn3::unpack::is_empty()) return;
  const auto definitions = mirn3::unpack::definitions();
  for (const auto& series : container.variables()) {
    for (const auto& made : definitions) {
      if (made.variable != series->main_name) continue;
      const kernels::BitField field{made.msb - made.base, made.lsb - made.base, made.gain, made.bias};
      auto reader = std::make_shared<rd::ReaderUnpacked>(series, field, kernels::coding_named(made.type));
      if (container.add_derived(series, made.name, std::move(reader))) continue;
      mirn3::log::write(mirn3::log::warning,
                        fmt::format("'{:s}' is not unpacked from '{:s}': there is a variable of that name",
                                    made.name, series->full_name));
    }
  }
}

std::shared_ptr<Container> assemble(const ReaderPtr& reader, bool enter) {
  auto container = std::make_shared<Container>();
  container->insert_reader(reader, enter);
  if (enter) {
    add_unpacked(*container);
    bank().add(container);
  }
  return container;
}

}  // namespace

ReaderPtr create_reader_from_file(const fs::path& path) {
  const Trace trace("create_reader_from_file");
  Nesting nesting;
  return choose_reader(normalised(path), nesting);
}

ReaderPtr create_reader_from_file(const fs::path& path, const fs::path& plugin) {
  const Trace trace("create_reader_from_file");
  const fs::path file = normalised(path);
  if (!sys::exists(file)) throw error_t(fmt::format("File {:s} not found", file.string()));
  const fs::path named = normalised(plugin);
  require_plugin(named);
  if (is_native(named)) return std::make_shared<rd::ReaderPluginDLLFile>(file, named);
  if (is_python(named)) {
    return std::make_shared<rd::ReaderPluginPYDFile>(file, mirn4::pyd::plugin_forced(named));
  }
  throw error_t("Extension not supported for plugin");
}

ReaderPtr create_reader_from_realtime(const fs::path& plugin) {
  const Trace trace("create_reader_from_realtime");
  const fs::path named = normalised(plugin);
  require_plugin(named);
  if (!is_native(named)) throw error_t("Extension not supported for plugin");
  return std::make_shared<rd::ReaderPluginDLLRealTime>(named);
}

std::shared_ptr<Container> create_container_from_file(const fs::path& path, bool enter) {
  return guard(
      PyExc_Exception,
      [&]() -> std::shared_ptr<Container> {
        const Trace trace("create_container_from_file");
        try {
          return assemble(create_reader_from_file(path), enter);
        } catch (const std::bad_alloc&) {
          throw;
        } catch (const python_error&) {
          throw;  // an interruption
        } catch (const std::exception& error) {
          fail(PyExc_Exception, "Error while loading file '{:s}': {:s}", path.string(), error.what());
        }
      },
      std::shared_ptr<Container>());
}

std::shared_ptr<Container> create_container_from_file(const fs::path& path, const fs::path& plugin) {
  return guard(
      PyExc_Exception,
      [&]() -> std::shared_ptr<Container> {
        const Trace trace("create_container_from_file");
        try {
          return assemble(create_reader_from_file(path, plugin), true);
        } catch (const std::bad_alloc&) {
          throw;
        } catch (const python_error&) {
          throw;  // an interruption
        } catch (const std::exception& error) {
          fail(PyExc_Exception, "Error while loading file '{:s}' with plugin '{:s}': {:s}", path.string(),
               plugin.string(), error.what());
        }
      },
      std::shared_ptr<Container>());
}

std::shared_ptr<Container> create_container_from_realtime(const fs::path& plugin) {
  return guard(
      PyExc_Exception,
      [&]() -> std::shared_ptr<Container> {
        const Trace trace("create_container_from_realtime");
        try {
          return assemble(create_reader_from_realtime(plugin), true);
        } catch (const std::bad_alloc&) {
          throw;
        } catch (const python_error&) {
          throw;  // an interruption
        } catch (const std::exception& error) {
          fail(PyExc_Exception, "Error while loading data from real-time source with plugin '{:s}': {:s}",
               plugin.string(), error.what());
        }
      },
      std::shared_ptr<Container>());
}

std::shared_ptr<Container> create_container_from_window(const Container& whole, rd::TimeWindow window) {
  const fs::path path = whole.readers().empty() ? fs::path() : source_path(*whole.readers().front());
  auto piece = std::make_shared<Container>();
  piece->insert_reader(std::make_shared<rd::ReaderWindow>(path, whole.variables(), window), true);
  bank().add(piece);
  return piece;
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
