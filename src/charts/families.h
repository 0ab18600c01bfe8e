// The families of chart, annotation and page commands: each source of this folder hands its rows to the
// module's table.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows chart_rows();
Rows annotation_rows();
Rows page_rows();

}  // namespace mirn2::fn
