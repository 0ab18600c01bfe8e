// Takes the cells that hold something out of a sheet's XML.
#include "backends/xlsx/sheet_cells.h"

#include <algorithm>
#include <charconv>

#include "runtime/exc.h"

namespace mirn2::rd::xlsx {

namespace {

using mirn3::exc::error_t;

[[noreturn]] void fail_damaged(const char* what) {
  throw error_t(std::string("The workbook is damaged: ") + what);
}

// The column of a reference such as "BC23", from 0.
uint32_t column_of(std::string_view reference) {
  uint32_t column = 0;
  size_t i = 0;
  for (; i < reference.size(); ++i) {
    const auto letter = static_cast<uint32_t>((reference[i] | 0x20) - 'a');
    if (letter >= 26) break;
    column = column * 26 + letter + 1;
    if (column > most_columns) break;
  }
  if (column == 0 || column > most_columns) fail_damaged("a cell lies beyond the last column");
  return column - 1;
}

CellType type_of(std::string_view type) {
  if (type.empty() || type == "n") return CellType::number;
  if (type == "s") return CellType::shared_text;
  if (type == "str" || type == "inlineStr") return CellType::text;
  if (type == "b") return CellType::boolean;
  if (type == "e") return CellType::error;
  if (type == "d") return CellType::iso_date;
  return CellType::error;
}

}  // namespace

std::string column_letters(uint32_t column) {
  std::string letters;
  for (uint32_t rest = column + 1; rest > 0; rest = (rest - 1) / 26) {
    letters += static_cast<char>('A' + (rest - 1) % 26);
  }
  std::reverse(letters.begin(), letters.end());
  return letters;
}

void SheetCells::start_row() {
  const std::string_view reference = token_.attribute("r");
  uint32_t row = row_ + 1;
  if (!reference.empty()) {
    const auto [end, error] = std::from_chars(reference.data(), reference.data() + reference.size(), row);
    if (error != std::errc() || end != reference.data() + reference.size())
      fail_damaged("a row has no number");
  }
  if (row <= row_) fail_damaged("its rows are not in order");
  if (row > most_rows) fail_damaged("a row lies beyond the last one");
  row_ = row;
  column_ = 0;
}

// The rest of a cell whose start tag was read; false when it is empty.
bool SheetCells::read_cell(Cell& cell) {
  value_.clear();
  int phonetic = 0;
  bool in_value = false;
  while (xml_.next(token_)) {
    if (token_.kind == Token::Kind::text) {
      if (!in_value || phonetic > 0) continue;
      token_.is_literal ? void(value_ += token_.text) : append_decoded(value_, token_.text);
    } else if (token_.name == "v" || token_.name == "t") {
      in_value = token_.kind == Token::Kind::start && !token_.is_empty;
    } else if (token_.name == "rPh" && !token_.is_empty) {
      phonetic += token_.kind == Token::Kind::start ? 1 : -1;
    } else if (token_.ends("c")) {
      cell.value = value_;
      return !value_.empty();
    }
  }
  fail_damaged("a cell has no end");
}

bool SheetCells::next(Cell& cell) {
  while (xml_.next(token_)) {
    if (token_.kind == Token::Kind::text) continue;
    if (token_.name == "c" && in_data_ && token_.kind == Token::Kind::start) {
      if (row_ == 0) fail_damaged("a cell lies outside of rows");
      std::string_view reference, style, type;
      std::string_view rest = token_.attributes, name, value;
      while (next_attribute(rest, name, value)) {
        if (name == "r") reference = value;
        if (name == "s") style = value;
        if (name == "t") type = value;
      }
      cell.column = reference.empty() ? column_ : column_of(reference);
      if (cell.column >= most_columns) fail_damaged("a row has too many cells");
      column_ = cell.column + 1;
      if (token_.is_empty) continue;
      cell.row = row_ - 1;
      cell.type = type_of(type);
      cell.style = 0;
      std::from_chars(style.data(), style.data() + style.size(), cell.style);
      if (read_cell(cell)) return true;
    } else if (token_.name == "row" && in_data_ && token_.kind == Token::Kind::start) {
      start_row();
    } else if (token_.name == "sheetData") {
      in_data_ = token_.kind == Token::Kind::start && !token_.is_empty;
    }
  }
  return false;
}

}  // namespace mirn2::rd::xlsx
