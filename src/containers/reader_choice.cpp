// Which reader serves a source: the rules, in their order.
#include "containers/reader_choice.h"

#include <array>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>

#include "containers/archives.h"
#include "containers/python_plugin.h"
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

#ifndef KVALO_PYARROW_VERSION
#define KVALO_PYARROW_VERSION "26.0"  // built without the package
#endif

namespace mirn2 {

namespace {

namespace fs = std::filesystem;
namespace sys = mirn3::sys;
using mirn3::exc::error_t;
using ReaderPtr = std::shared_ptr<rd::Reader>;

constexpr const char* incompatible = "File is not compatible with any built-in loaders or plugins";

// What the rules look at, gathered as they need it.
struct Candidate {
  fs::path path;
  Nesting& nesting;
  std::string explanation;  // why the most likely reader did not fit, for the log

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

// HDF5 files have their signature at offset 0 or at a power of two from 512 on.
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

ReaderPtr native_plugin(Candidate& candidate) {
  auto plugin = without_gil([&] { return sys::plugin_compatible(candidate.path); });
  return plugin ? std::make_shared<rd::ReaderPluginDLLFile>(candidate.path, std::move(plugin)) : nullptr;
}
ReaderPtr python_plugin(Candidate& candidate) {
  Ref module = mirn4::pyd::plugin_compatible(candidate.path);
  return module ? std::make_shared<rd::ReaderPluginPYDFile>(candidate.path, std::move(module)) : nullptr;
}

ReaderPtr choose_by_rules(const fs::path& path, Nesting& nesting);

ReaderPtr archive(Candidate& candidate) {
  return reader_in_archive(candidate.path, candidate.nesting, choose_by_rules);
}

ReaderPtr not_a_regular_file(Candidate& candidate) {
  const fs::file_status status = fs::symlink_status(candidate.path);
  if (fs::is_regular_file(status)) return nullptr;
  if (fs::is_symlink(status)) {
    mirn3::log::write(mirn3::log::warning, fmt::format("'{:s}' is a link; load the file it points to instead",
                                                       candidate.path.string()));
  }
  throw error_t(incompatible);
}

ReaderPtr hdf5(Candidate& candidate) {
  static constexpr rd::Backend backend{"hdf5", "HDF5 files", "install the package libhdf5-103-1"};
  return is_hdf5(candidate) ? rd::make_backend_reader(backend, candidate.path) : nullptr;
}
ReaderPtr mat(Candidate& candidate) {
  static constexpr rd::Backend backend{"mat", "MAT files", "install the package zlib1g"};
  return candidate.has_extension(".mat") ? rd::make_backend_reader(backend, candidate.path) : nullptr;
}
ReaderPtr xlsx(Candidate& candidate) {
  static constexpr rd::Backend backend{"xlsx", "XLSX workbooks", "install the package libminizip1"};
  return candidate.has_extension(".xlsx") ? rd::make_backend_reader(backend, candidate.path) : nullptr;
}
ReaderPtr delimited(Candidate& candidate) {
  const char delimiter = rd::probe_delimiter(candidate.path, &candidate.explanation);
  return delimiter != 0 ? std::make_shared<rd::ReaderDelimited>(candidate.path, delimiter) : nullptr;
}
ReaderPtr parquet(Candidate& candidate) {
  static constexpr rd::Backend backend{
      "parquet", "Parquet files",
      "the package pyarrow, version " KVALO_PYARROW_VERSION
      ", is needed; install it with: pip install 'pyarrow==" KVALO_PYARROW_VERSION
      ".*' (where it is installed but not beside kvalo: import it first)"};
  const bool is_parquet = candidate.has_extension(".parquet") || candidate.head(4) == "PAR1";
  return is_parquet ? rd::make_backend_reader(backend, candidate.path) : nullptr;
}
ReaderPtr ardupilot_bin(Candidate& candidate) {
  const bool is_log = candidate.head(89).starts_with("\xA3\x95");
  return is_log ? std::make_shared<rd::ReaderArduPilotBIN>(candidate.path) : nullptr;
}
ReaderPtr ardupilot_txt(Candidate& candidate) {
  return first_line_has_fmt(candidate) ? std::make_shared<rd::ReaderArduPilotTXT>(candidate.path) : nullptr;
}
ReaderPtr wav(Candidate& candidate) {
  if (!candidate.has_extension(".wav")) return nullptr;
  if (!rd::probe_wav(candidate.path, &candidate.explanation)) return nullptr;
  return std::make_shared<rd::ReaderWAV>(candidate.path);
}

// The rules in their order: each gives a reader, passes (null), or throws.
using Rule = ReaderPtr (*)(Candidate&);
constexpr Rule rules[] = {
    native_plugin, python_plugin, archive, not_a_regular_file, hdf5,          mat,
    xlsx,          delimited,     parquet, ardupilot_bin,      ardupilot_txt, wav,
};

ReaderPtr choose_by_rules(const fs::path& path, Nesting& nesting) {
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

}  // namespace

ReaderPtr choose_reader(const fs::path& path) {
  const Trace trace("create_reader_from_file");
  Nesting nesting;
  return choose_by_rules(normalised(path), nesting);
}

ReaderPtr plugin_reader(const fs::path& path, const fs::path& plugin) {
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

ReaderPtr realtime_reader(const fs::path& plugin) {
  const Trace trace("create_reader_from_realtime");
  const fs::path named = normalised(plugin);
  require_plugin(named);
  if (!is_native(named)) throw error_t("Extension not supported for plugin");
  return std::make_shared<rd::ReaderPluginDLLRealTime>(named);
}

}  // namespace mirn2
