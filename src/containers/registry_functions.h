// Module functions on the registry: finding series and containers, and merging a file into the one it fits.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows search_rows();
Rows merge_rows();

}  // namespace mirn2::fn
