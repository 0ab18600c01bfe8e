// The cells of a sheet that hold something, one after another, out of its XML.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "backends/xlsx/byte_source.h"
#include "backends/xlsx/xml.h"

namespace mirn2::rd::xlsx {

constexpr uint32_t most_rows = 1'048'576;
constexpr uint32_t most_columns = 16'384;

enum class CellType : uint8_t { number, shared_text, text, boolean, error, iso_date };

struct Cell {
  uint32_t row = 0;     // from 0
  uint32_t column = 0;  // from 0
  CellType type = CellType::number;
  uint32_t style = 0;
  std::string_view value;  // entities replaced; valid until the next cell
};

// Column letters and back: 0 is A, 26 is AA.
std::string column_letters(uint32_t column);

class SheetCells {
 public:
  explicit SheetCells(ByteSource& source) : xml_(source) {}

  // The next cell that has a value; rows never step back. Throws mirn3::exc::error_t for what no sheet holds.
  bool next(Cell& cell);

 private:
  void start_row();
  bool read_cell(Cell& cell);

  XmlReader xml_;
  Token token_;
  std::string value_;
  uint32_t row_ = 0;     // of the current row, from 1; 0 before the first
  uint32_t column_ = 0;  // of the next cell without a reference, from 0
  bool in_data_ = false;
};

}  // namespace mirn2::rd::xlsx
