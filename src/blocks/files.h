// Files that appear under their names only when all of them are complete.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace plexo {

// Name and content of a file.
using NamedText = std::pair<std::string, std::string>;

// Writes the files into the folder, which is made if it is missing (its parent must exist). False, with the
// reason, when that fails; no partial file is left then.
bool write_files(const std::filesystem::path& folder, const std::vector<NamedText>& files, std::string& why);

}  // namespace plexo
