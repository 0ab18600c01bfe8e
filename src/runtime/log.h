// The log: one line per entry in kvalo.log, `2026-11-21T04:22:01.123456Z 3 text`, UTC, rotated by size.
//
// Line breaks in the text are escaped. The file is opened at the first entry that is written, and a
// log that cannot be written never disturbs the work. Any thread may write.
#pragma once

#include <string_view>

#include "kvalo/export.h"

namespace mirn3::log {

enum severity_t : int { trace = 0, info = 1, warning = 2, error = 3 };

// Writes one entry unless its severity is below the lowest one written (KVALO_LOG_LEVEL, default 1).
MIRN3_API void write(int severity, std::string_view text) noexcept;

// Whether an entry of this severity would be written: spares building the text of traces.
MIRN3_API bool enabled(int severity) noexcept;

// Writes out what is buffered and closes the file; a later entry opens it again.
MIRN3_API void close() noexcept;

}  // namespace mirn3::log
