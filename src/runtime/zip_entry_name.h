// The names of archive entries as paths that stay inside a folder.
#pragma once

#include <string>
#include <string_view>

#include "kvalo/export.h"

namespace mirn3::zip {

// The name with "/" between its parts, without "." parts and a slash at the end; bytes that are not UTF-8 and
// control characters become %XX. A backslash separates parts, as in archives made on Windows. Empty for
// the folder itself. Throws exc::error_t, which says why, for a name that would leave the folder (absolute,
// "..", a drive letter) or that no file system accepts.
MIRN3_API std::string entry_name(std::string_view raw);

}  // namespace mirn3::zip
