// Writes generated files beside their targets and renames them when all are whole.
#include "blocks/files.h"

#include <fmt/format.h>

#include "runtime/exc.h"
#include "runtime/str.h"
#include "runtime/sys.h"

namespace plexo {

namespace {

namespace fs = std::filesystem;

void write_file(const fs::path& path, const std::string& content) {
  mirn3::sys::File file(path, mirn3::sys::write_text);
  file.write(content);
  file.close();
}

}  // namespace

bool write_files(const fs::path& folder, const std::vector<NamedText>& files, std::string& why) {
  if (folder.empty()) {
    why = "The path of the folder is empty: the current folder is \".\"";
    return false;
  }
  std::vector<fs::path> written;
  const std::string ending = '.' + mirn3::str::random(8);
  std::error_code error;
  // NOLINTNEXTLINE(clang-analyzer-deadcode.DeadStores): a failure reads it
  const bool is_new = fs::create_directory(folder, error);
  try {
    for (const auto& [name, content] : files) {
      // What must not be written must not be replaced either.
      mirn3::sys::write_check(folder / name);
      written.push_back(folder / fmt::format(".{}{}", name, ending));
      write_file(written.back(), content);
    }
    for (size_t i = 0; i < files.size(); ++i) fs::rename(written[i], folder / files[i].first);
    return true;
  } catch (const std::exception& e) {
    why = e.what();
  }
  for (const fs::path& path : written) fs::remove(path, error);
  if (is_new) fs::remove(folder, error);
  return false;
}

}  // namespace plexo
