// What reading and writing model files agree on.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "blocks/meta.h"

namespace plexo::json {

inline constexpr std::string_view format_name = "kvalo-model";
inline constexpr double newest_version = 1;
inline constexpr size_t most_bytes = size_t{64} << 20;
inline constexpr unsigned most_levels = 32;
inline constexpr double largest_id = 9007199254740992.0;  // 2^53: JSON numbers are exact up to here

// The keys of a Place, in its order.
inline constexpr std::array<std::string_view, 7> place_keys{"x",   "y",     "width", "height",
                                                            "red", "green", "blue"};

// Gives an empty model its top block.
void add_top(MetaModel& model);

}  // namespace plexo::json
