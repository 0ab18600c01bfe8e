// The configuration store: values by group and key, kept in state.db.
//
// Group and key ignore (ASCII) case. Several processes may use one store at once, and a kill at any
// moment loses at most the value being written. Opened on first use.
#pragma once

#include <string_view>

#include "kvalo/host.h"

namespace mirn3::config {

// The stored value; tag none when there is none. Throws exc::error_t when the store fails.
MIRN3_API var_t get(std::string_view group, std::string_view key);

// Stores a value. On failure throws exc::error_t and the old value stays.
MIRN3_API void set(std::string_view group, std::string_view key, std::string_view value);
MIRN3_API void set(std::string_view group, std::string_view key, int32_t value);
MIRN3_API void set(std::string_view group, std::string_view key, int64_t value);
MIRN3_API void set(std::string_view group, std::string_view key, double value);
MIRN3_API void set(std::string_view group, std::string_view key, bool value);
// A literal would otherwise be taken for a boolean.
inline void set(std::string_view group, std::string_view key, const char* value) {
  set(group, key, std::string_view(value));
}

}  // namespace mirn3::config
