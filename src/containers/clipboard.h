// Containers from the text on the clipboard.
#pragma once

#include <memory>

#include "containers/container.h"

namespace mirn2 {

// A container over the clipboard's text, entered into the registry with its variables. On failure reports
// Python's Exception and returns null, with nothing left in the registry.
std::shared_ptr<Container> create_container_from_clipboard();

}  // namespace mirn2
