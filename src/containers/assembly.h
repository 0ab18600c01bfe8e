// How a container is put together: its reader, the variables that the reader and bit-field definitions give
// it, and its entry in the registry.
#pragma once

#include <filesystem>
#include <memory>

#include "containers/container.h"
#include "containers/derived_readers.h"

namespace mirn2 {

// A container over a source, entered into the registry with its variables. A failure is reported as Python's
// Exception "Error while loading ...", leaves nothing in the registry, and gives null.
std::shared_ptr<Container> create_container_from_file(const std::filesystem::path& path);
std::shared_ptr<Container> create_container_with_plugin(const std::filesystem::path& path,
                                                        const std::filesystem::path& plugin);
std::shared_ptr<Container> create_container_from_realtime(const std::filesystem::path& plugin);

// The same for a file, with a container that the registry never learns of and that owns its variables.
std::shared_ptr<Container> create_unregistered_container(const std::filesystem::path& path);

// A container over the text on the clipboard, entered into the registry. A failure is reported as Python's
// Exception and gives null.
std::shared_ptr<Container> create_container_from_clipboard();

// A container over the variables of another one between two times, entered into the registry. Throws
// mirn3::exc::error_t.
std::shared_ptr<Container> create_container_from_window(const Container& whole, rd::TimeWindow window);

// Reads another file into a container, whose new variables enter the registry. Throws mirn3::exc::error_t.
void add_file(Container& container, const std::filesystem::path& path);

}  // namespace mirn2
