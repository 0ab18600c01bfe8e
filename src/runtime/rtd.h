// Whether a real-time data connection is active in this process.
#pragma once

#include "kvalo/export.h"

namespace mirn3::rtd {

MIRN3_API bool is_online() noexcept;
MIRN3_API void set_online() noexcept;
MIRN3_API void set_offline() noexcept;

}  // namespace mirn3::rtd
