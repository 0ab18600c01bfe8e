// Whether a host owns the process, and start and stop of the runtime.
#pragma once

#include "kvalo/export.h"

namespace mirn3 {

// A host program owns the runtime (application mode). Set by the host before the module is imported.
MIRN3_API bool is_app() noexcept;
MIRN3_API void set_app(bool value) noexcept;

// The module's start-up has been done in this process.
MIRN3_API bool is_pyd() noexcept;
MIRN3_API void init_pyd();

// Ends the runtime: no callback runs any more, tags are saved, the stores and the log are closed.
MIRN3_API void shut() noexcept;

}  // namespace mirn3
