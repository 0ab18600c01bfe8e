// Module functions: what the host shows of all charts at once.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows display_rows();

}  // namespace mirn2::fn
