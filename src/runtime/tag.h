// Tag tables: texts that stand for sample values (a mode's name, a state), one table per key, kept in
// state.db so that a text has the same number in every session.
//
// Numbers of a key count up from 0. Two processes may add texts at once: a number is never given to
// two texts of one key. Safe from every thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kvalo/export.h"

namespace mirn3::tag {

// The number of `text` under `key`; a new one if it has none yet.
MIRN3_API double fetch_or_create(std::string_view key, std::string_view text);

// The text that has this number under `key`; empty when there is none.
MIRN3_API std::string get(std::string_view key, double value);

// Reads what other processes saved since the last time.
MIRN3_API void load();

// Writes new texts to the store. Throws exc::error_t when that fails; the texts stay in memory.
MIRN3_API void save();

}  // namespace mirn3::tag
