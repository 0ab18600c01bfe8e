// Module function: a container from the text on the clipboard.
#pragma once

#include "objects/row.h"

namespace mirn2::fn {

Rows clipboard_rows();

}  // namespace mirn2::fn
