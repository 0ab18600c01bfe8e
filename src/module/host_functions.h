// Module functions that talk to the host.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows host_rows();

}  // namespace mirn2::fn
