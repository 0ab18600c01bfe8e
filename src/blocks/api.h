// Visibility of what libplexo offers; everything else in it is hidden.
#pragma once

#include "kvalo/export.h"

#define PLEXO_API KVALO_EXPORT
