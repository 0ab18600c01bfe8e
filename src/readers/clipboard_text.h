// The text on the desktop's clipboard, through libclipboard or else GLFW, opened on first use.
#pragma once

#include <string>

namespace mirn2::rd {

// Throws mirn3::exc::error_t "Could not open clipboard" (no desktop, or neither library), "Could not open
// read clipboard" (there is no text on it) or "Error while reading data from clipboard" (the program that
// owns the text does not answer); the log has the details. May take seconds: callers hold no lock.
std::string read_clipboard_text();

}  // namespace mirn2::rd
