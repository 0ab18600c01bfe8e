// Finds the loaded container that a new file belongs to.
#pragma once

#include <filesystem>
#include <memory>

#include "containers/container.h"

namespace mirn2 {

// The first container in the registry that holds at least `ratio` of the main names found in the file. Null
// when there is none, the file has no variables, or it cannot be read (the failure goes to the log).
std::shared_ptr<Container> find_compatible(const std::filesystem::path& path, double ratio);

}  // namespace mirn2
