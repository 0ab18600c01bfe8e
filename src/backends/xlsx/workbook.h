// What a workbook says about itself: its sheets in order, how it counts days, how its cells are shown.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "backends/xlsx/byte_source.h"
#include "backends/xlsx/number_format.h"
#include "backends/xlsx/package.h"

namespace mirn2::rd::xlsx {

struct Workbook {
  struct Sheet {
    std::string name;
    std::string part;
  };

  std::vector<Sheet> sheets;  // worksheets only
  bool counts_from_1904 = false;
  std::vector<Shown> styles;  // by the cell's style number
  std::string strings_part;   // empty when there are no shared strings

  Shown shown(uint32_t style) const noexcept { return style < styles.size() ? styles[style] : Shown::number; }
};

// Throws mirn3::exc::error_t.
Workbook read_workbook(const Package& package);

// The pieces of it, from the XML of one part each.
struct Relation {
  std::string target;  // as written: relative to the folder of the part that has the relations
  std::string type;    // the last word of its type
};
std::unordered_map<std::string, Relation> read_relations(ByteSource& source);  // by id
std::vector<Shown> read_styles(ByteSource& source);

}  // namespace mirn2::rd::xlsx
