// Module functions on the registry and on container creation.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows search_rows();
Rows merge_rows();

}  // namespace mirn2::fn
