// Turns the cells of a sheet into a table with titles, a time column and values.
#include "backends/xlsx/table.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <map>

#include "readers/time_name.h"
#include "runtime/exc.h"
#include "runtime/str.h"
#include "runtime/utc.h"

namespace mirn2::rd::xlsx {

namespace {

constexpr double nothing = std::numeric_limits<double>::quiet_NaN();

// Rows with cells in them that decide on titles and on the time column.
constexpr size_t head_rows = 256;

bool is_text(CellType type) { return type == CellType::text || type == CellType::shared_text; }

// Numbers as programs write them: up to 15 digits and a point are exact in plain arithmetic.
double plain_number(std::string_view text) {
  constexpr std::array<double, 16> powers = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                             1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  const char* at = text.data();
  const char* const last = at + text.size();
  const bool negative = at != last && *at == '-';
  if (negative) ++at;
  uint64_t digits = 0;
  size_t count = 0, decimals = 0;
  bool point = false;
  for (; at != last; ++at) {
    const auto digit = static_cast<unsigned char>(*at - '0');
    if (digit < 10) {
      digits = digits * 10 + digit;
      decimals += point;
      if (++count > 15) break;
    } else if (*at == '.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  if (at == last && count > 0) {
    const double value = static_cast<double>(digits) / powers[decimals];
    return negative ? -value : value;
  }
  double value = nothing;
  const char* first = text.data() + (text.starts_with('+') ? 1 : 0);
  const auto [end, error] = std::from_chars(first, last, value);
  return error == std::errc() && end == last ? value : nothing;
}

double iso_seconds(std::string_view text) {
  if (text.starts_with('T')) text.remove_prefix(1);
  return mirn3::utc::to_double(text, mirn3::utc::guess_type(text));
}

uint64_t shared_number(std::string_view text, const Strings& strings) {
  uint64_t number = UINT64_MAX;
  std::from_chars(text.data(), text.data() + text.size(), number);
  if (number >= strings.size()) {
    throw mirn3::exc::error_t("The workbook is damaged: a cell refers to a text that is not there");
  }
  return number;
}

// What a cell says, whatever its column is.
std::string_view text_of(const Cell& cell, const Strings& strings) {
  return cell.type == CellType::shared_text ? strings[shared_number(cell.value, strings)] : cell.value;
}

double number_of(const Cell& cell, const Workbook& book, const Strings& strings) {
  switch (cell.type) {
    case CellType::number: {
      const double value = plain_number(cell.value);
      const Shown shown = book.shown(cell.style);
      return shown == Shown::number ? value : seconds_of(value, shown, book.counts_from_1904);
    }
    case CellType::boolean:
      return cell.value == "1" || cell.value == "true" ? 1 : 0;
    case CellType::iso_date:
      return iso_seconds(cell.value);
    case CellType::shared_text:
    case CellType::text:
      return plain_number(mirn3::str::trimmed(text_of(cell, strings)));
    case CellType::error:
      break;
  }
  return nothing;
}

// Numbers that were typed as text are numbers.
ColumnKind kind_by(const Cell& cell, const Strings& strings) {
  if (!is_text(cell.type)) return ColumnKind::number;
  return std::isnan(plain_number(mirn3::str::trimmed(text_of(cell, strings)))) ? ColumnKind::text
                                                                               : ColumnKind::number;
}

// ---- the head of a sheet ----

struct HeadRow {
  uint32_t row = 0;
  size_t texts = 0;
  size_t others = 0;  // numbers, dates, errors
};

struct HeadCell {
  size_t row;  // place in the list of rows
  uint32_t column;
  ColumnKind kind;
  double number;
  std::string text;
};

struct Head {
  std::vector<HeadRow> rows;
  std::vector<HeadCell> cells;
  bool is_all = true;  // the sheet ends there
};

Head read_head(ByteSource& sheet, const Workbook& book, const Strings& strings) {
  Head head;
  SheetCells cells(sheet);
  for (Cell cell; cells.next(cell);) {
    const std::string_view text = is_text(cell.type) ? text_of(cell, strings) : cell.value;
    if (mirn3::str::trimmed(text).empty()) continue;
    if (head.rows.empty() || head.rows.back().row != cell.row) {
      if (head.rows.size() == head_rows) {
        head.is_all = false;
        break;
      }
      head.rows.push_back({.row = cell.row});
    }
    const ColumnKind kind = cell.type == CellType::error ? ColumnKind::unknown : kind_by(cell, strings);
    ++(kind == ColumnKind::text ? head.rows.back().texts : head.rows.back().others);
    head.cells.push_back({head.rows.size() - 1, cell.column, kind, number_of(cell, book, strings),
                          kind == ColumnKind::text ? std::string(mirn3::str::trimmed(text)) : std::string()});
  }
  return head;
}

// Of the rows at the top that hold only text, the row of titles is the one with the most texts, so a heading
// above it or a row of units below it does no harm.
std::optional<size_t> find_titles(const Head& head, size_t above) {
  std::optional<size_t> best;
  for (size_t i = 0; i < above; ++i) {
    if (!best || head.rows[i].texts > head.rows[*best].texts) best = i;
  }
  return best;
}

struct HeadColumn {
  std::string title;
  ColumnKind kind = ColumnKind::unknown;
  bool has_data = false;
  bool rises = true;  // as far as it was looked at
  size_t numbers = 0;
  double last = 0;

  void add(const HeadCell& cell) {
    has_data = true;
    if (kind == ColumnKind::unknown) kind = cell.kind;
    if (cell.kind != ColumnKind::number) return;
    if (numbers++ > 0 && !(cell.number > last)) rises = false;
    last = cell.number;
  }
};

std::optional<uint32_t> find_time(const std::map<uint32_t, HeadColumn>& columns) {
  for (const auto& [position, column] : columns) {
    if (column.has_data && is_time_name(mirn3::str::trimmed(column.title))) return position;
  }
  // Else the first column of numbers, if it can be one, and not the only one there is.
  const auto is_numeric = [](const auto& entry) { return entry.second.kind == ColumnKind::number; };
  const auto first = std::find_if(columns.begin(), columns.end(), is_numeric);
  if (first == columns.end() || std::count_if(columns.begin(), columns.end(), is_numeric) < 2) return {};
  const bool can_be = first->second.rises && first->second.numbers > 1;
  return can_be ? std::optional(first->first) : std::nullopt;
}

}  // namespace

TableLayout read_layout(ByteSource& sheet, const Workbook& book, const Strings& strings) {
  const Head head = read_head(sheet, book, strings);
  TableLayout layout;
  if (head.rows.empty()) return layout;
  const auto first_other =
      std::find_if(head.rows.begin(), head.rows.end(), [](const HeadRow& row) { return row.others > 0; });
  const auto above = static_cast<size_t>(first_other - head.rows.begin());
  const std::optional<size_t> titles = find_titles(head, above);
  // Text alone: everything below the titles is data.
  size_t first_data = above;
  if (titles && above == head.rows.size()) first_data = *titles + 1;
  layout.first_row = first_data < head.rows.size() ? head.rows[first_data].row : head.rows.back().row + 1;

  std::map<uint32_t, HeadColumn> columns;
  for (const HeadCell& cell : head.cells) {
    if (titles && cell.row == *titles) columns[cell.column].title = cell.text;
    if (cell.row >= first_data) columns[cell.column].add(cell);
  }
  layout.time = find_time(columns);
  for (auto& [position, column] : columns) {
    if (position == layout.time || (!column.has_data && head.is_all)) continue;
    const bool is_named = !column.title.empty();
    layout.variables.push_back({position, is_named ? std::move(column.title) : column_letters(position)});
  }
  return layout;
}

std::optional<Columns> read_columns(ByteSource& sheet, const TableLayout& layout, const Workbook& book,
                                    Strings& strings, const std::vector<uint32_t>* only,
                                    uint64_t most_bytes) {
  uint32_t width = layout.time.value_or(0);
  for (const auto& variable : layout.variables) width = std::max(width, variable.position);
  std::vector<bool> wanted(width + 1, only == nullptr);
  for (const uint32_t position : only != nullptr ? *only : std::vector<uint32_t>()) wanted[position] = true;

  Columns columns(width + 1);
  uint64_t bytes = 0;
  SheetCells cells(sheet);
  for (Cell cell; cells.next(cell);) {
    if (cell.row < layout.first_row || cell.column > width || !wanted[cell.column]) continue;
    const uint32_t row = cell.row - layout.first_row;
    ColumnValues& column = columns[cell.column];
    if (column.kind == ColumnKind::unknown && cell.type != CellType::error)
      column.kind = kind_by(cell, strings);
    double value = nothing;
    if (column.kind != ColumnKind::text) {
      value = number_of(cell, book, strings);
    } else if (cell.type == CellType::shared_text) {
      value = static_cast<double>(shared_number(cell.value, strings));
    } else if (cell.type != CellType::error) {
      value = static_cast<double>(strings.number_of(cell.value));
    }
    const size_t count = column.values.size();
    if (count > 0 && column.row_of(count - 1) == row) {  // the same cell again
      column.values.back() = value;
      continue;
    }
    if (column.rows.empty() && row != count) {
      for (size_t i = 0; i < count; ++i) column.rows.push_back(static_cast<uint32_t>(i));
    }
    if (row != count || !column.rows.empty()) column.rows.push_back(row);
    column.values.push_back(value);
    bytes += sizeof(double) + sizeof(uint32_t);
    if (only == nullptr && bytes > most_bytes) return std::nullopt;
  }
  return columns;
}

bool become_times(ColumnValues& column, const Strings& strings) {
  if (column.kind != ColumnKind::text) return false;
  const auto number = [](double value) {
    return std::isnan(value) ? UINT64_MAX : static_cast<uint64_t>(value);
  };
  const auto first = std::find_if(column.values.begin(), column.values.end(),
                                  [](double value) { return !std::isnan(value); });
  if (first == column.values.end()) return false;
  const int32_t type = mirn3::utc::guess_type(strings[number(*first)]);
  if (std::isnan(mirn3::utc::to_double(strings[number(*first)], type))) return false;
  for (double& value : column.values) value = mirn3::utc::to_double(strings[number(value)], type);
  if (type == mirn3::utc::time_of_day) mirn3::utc::unroll_midnight(column.values);
  column.kind = ColumnKind::number;
  return true;
}

}  // namespace mirn2::rd::xlsx
