// Bit-field definitions: variables that every loaded source gets in addition to its own.
//
// They are kept in unpack.csv in the configuration folder, one per line under the header
// "variable,name,msb,lsb,base,gain,bias,type": the main name of the variable that holds the bits, the name
// of the new one, and the arguments of kvalo.unpack (empty cells: 0, gain 1, type USGN). Cells may be
// quoted. A line that makes no sense is skipped; the log says which and why.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kvalo/export.h"

namespace mirn3::unpack {

struct Definition {
  std::string variable;
  std::string name;
  uint64_t msb = 0;
  uint64_t lsb = 0;
  uint64_t base = 0;
  double gain = 1.0;
  double bias = 0.0;
  std::string type;
};

// Reads the file if it has changed since the last time. Without one there are no definitions.
MIRN3_API void load();

MIRN3_API bool is_empty();
MIRN3_API std::vector<Definition> definitions();

}  // namespace mirn3::unpack
