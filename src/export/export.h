// kvalo.export_to_file: series on a regular time grid, as delimited text.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows export_rows();

}  // namespace mirn2::fn
