// The names by which typed files (Parquet, HDF5, MAT, workbooks) mark the column that is the time.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

#include "runtime/str.h"

namespace mirn2::rd {

// In lower case; where a file has several of them, the earlier one is preferred by readers that choose.
constexpr std::array<std::string_view, 4> time_names = {"time", "timestamp", "t", "time_s"};

// Whether a name is one of them in any case.
inline bool is_time_name(std::string_view name) {
  return std::ranges::find(time_names, mirn3::str::to_lower(name)) != time_names.end();
}

}  // namespace mirn2::rd
