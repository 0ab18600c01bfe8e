// Module functions: persistent settings, and those that belong to the host's window.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows config_rows();

}  // namespace mirn2::fn
