// A sheet as a table: which row names its columns, which column is the time, and the columns' values.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "backends/xlsx/byte_source.h"
#include "backends/xlsx/sheet_cells.h"
#include "backends/xlsx/strings.h"
#include "backends/xlsx/workbook.h"

namespace mirn2::rd::xlsx {

// What a column holds, by the first cell below its title that holds anything but an error.
enum class ColumnKind : uint8_t { unknown, number, text };

struct TableLayout {
  struct Column {
    uint32_t position;  // from 0
    std::string name;   // its title, or its letters
  };

  uint32_t first_row = 0;         // of the data, from 0
  std::optional<uint32_t> time;   // position of the time column; none: the rows count
  std::vector<Column> variables;  // in the sheet's order; empty: the sheet holds no data
};

// Looks at the head of a sheet. Throws mirn3::exc::error_t.
TableLayout read_layout(ByteSource& sheet, const Workbook& book, const Strings& strings);

// The values of one column: those of its cells that hold something. Numbers; of a column of text, the
// numbers that `strings` has for them, NaN where there is none.
struct ColumnValues {
  ColumnKind kind = ColumnKind::unknown;
  std::vector<double> values;
  std::vector<uint32_t>
      rows;  // row of each value, from the first of the data; empty while they are 0, 1, 2, ...

  uint32_t row_of(size_t i) const noexcept { return rows.empty() ? static_cast<uint32_t>(i) : rows[i]; }
  uint64_t bytes() const noexcept {
    return values.capacity() * sizeof(double) + rows.capacity() * sizeof(uint32_t);
  }
};

// By position. With `only`, the columns at these positions and nothing else; without, all of them, unless
// they take more than `most_bytes`: nullopt then. Texts that stand in cells are entered into `strings`.
using Columns = std::vector<ColumnValues>;
std::optional<Columns> read_columns(ByteSource& sheet, const TableLayout& layout, const Workbook& book,
                                    Strings& strings, const std::vector<uint32_t>* only, uint64_t most_bytes);

// Turns a column of text into times, if its texts are time stamps; else leaves it. True if it did.
bool become_times(ColumnValues& column, const Strings& strings);

}  // namespace mirn2::rd::xlsx
