// Finds the loaded container that a new file belongs to: the one that has most of its names already.
#include "containers/compatible.h"

#include <Python.h>

#include <algorithm>

#include "containers/assembly.h"
#include "containers/bank.h"

namespace mirn2 {

std::shared_ptr<Container> find_compatible(const std::filesystem::path& path, double ratio) {
  const std::shared_ptr<Container> candidate = create_unregistered_container(path);
  if (!candidate) {
    PyErr_Clear();  // logged already; a file that cannot be read is compatible with nothing
    return nullptr;
  }
  const auto variables = candidate->variables();
  for (const std::shared_ptr<Container>& container : bank().containers()) {
    const auto known = std::ranges::count_if(
        variables, [&](const auto& series) { return container->has_main_name(series->main_name); });
    // A file without variables makes this NaN, and the comparison false.
    if (static_cast<double>(known) / static_cast<double>(variables.size()) >= ratio) return container;
  }
  return nullptr;
}

}  // namespace mirn2
