// Visibility of what the shared libraries offer. Everything else is hidden.
#pragma once

#define KVALO_EXPORT __attribute__((visibility("default")))

#define MIRN3_API KVALO_EXPORT
#define MIRN1_API KVALO_EXPORT
