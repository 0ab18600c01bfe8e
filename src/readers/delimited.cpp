// Scanning and loading delimited text.
#include "readers/delimited.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <utility>

#include "readers/delimited_rows.h"
#include "readers/delimited_scan.h"
#include "readers/delimited_walk.h"
#include "readers/number_text.h"
#include "runtime/charge.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/mem.h"
#include "runtime/par.h"
#include "runtime/str.h"
#include "runtime/tag.h"
#include "runtime/utc.h"

namespace mirn2::rd {

namespace {

using Samples = mirn3::shared_vector<double>;

enum class ValueType : uint8_t { number, hexadecimal, text };

ValueType type_of(std::string_view field) {
  if (field.size() > 1 && field[0] == '0' && (field[1] == 'x' || field[1] == 'X')) {
    return ValueType::hexadecimal;
  }
  const char c = field.empty() ? '\0' : field[0];
  const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  return letter ? ValueType::text : ValueType::number;
}

// The values of one column, by row; rows without a value hold scan::missing_bits.
struct Column {
  Samples values;
  uint64_t missing = 0;
};

// Columns that one walk reads when loads come in order, and the walks after it. It grows, so that few columns
// in a row cost little and many columns cost few walks over the file.
constexpr std::array<size_t, 3> columns_ahead = {4, 16, 32};

// Room that a series gets beyond the lines of its file.
constexpr uint64_t spare_rows = 100;

// Of the budget that is left, the share that may be filled with columns nobody has asked for.
constexpr uint64_t share_ahead = 4;

// A text of fewer pieces is in the caches anyway when its rows have been found.
constexpr size_t least_pieces_at_once = 3;

// Columns that a walk is filling.
struct Filling {
  uint64_t first;
  std::vector<Column> columns;
  Samples time;
  bool with_time;
  NumberWalk walk;
};

}  // namespace

// What loads learned about the file and pass on to later ones. Used by one load at a time.
struct ReaderDelimited::Learned {
  // Finds the rows and, where `column` holds numbers, reads it at the same time.
  Learned(const std::filesystem::path& path, const ReaderDelimited& reader, uint64_t column);

  // Notes that a column is asked for; true when it follows the one asked for last, or is the first of all and
  // so may be the first of many.
  bool is_in_order(uint64_t column);

  ValueType type_at(uint64_t column) const noexcept {
    return column < types.size() ? types[column] : ValueType::number;
  }

  // The numbers of a column: read ahead, or read now, with the columns after it if loads come in order.
  Column numbers(uint64_t column, bool in_order, uint64_t capacity);

  // Fills `time` unless it is there.
  void read_time_column(uint64_t capacity);

  char delimiter;
  int32_t time_type;
  uint64_t last_title;  // the last column that has a title

  std::vector<ValueType> types;  // by column, as far as the first row goes

  bool has_time = false;
  Samples time;

  // Where each row was left behind when the fields before `left_before` were read; 0: nowhere.
  std::unique_ptr<uint32_t[]> left_at;
  uint64_t left_before = 0;

  std::unordered_map<uint64_t, Column> ready;  // read ahead
  uint64_t last_column = 0;                    // asked for last; at first the time, which comes before all
  size_t ahead = 0;                            // times read ahead in the present order of loads

  mirn3::mem::Charge charge;

  DelimitedRows rows;  // comes after those above: making it fills some of them

  const mirn3::sys::FileStamp stamp = rows.stamp();

 private:
  Learned(const std::filesystem::path& path, const ReaderDelimited& reader, uint64_t column,
          std::optional<Filling> filling);
  DelimitedRows::Visit read_while_found(std::string_view text, size_t pieces, uint64_t column,
                                        std::optional<Filling>& filling);
  size_t columns_from(uint64_t column, uint64_t count);
  Filling begin(uint64_t column, size_t columns, uint64_t capacity, uint64_t room, size_t pieces);
  void finish(Filling filling, uint64_t capacity);
  void finish_time(uint64_t unread);
};

namespace {

using Rows = DelimitedRows;

std::vector<ValueType> detect_types(std::string_view row, char delimiter) {
  std::vector<ValueType> types;
  const char* p = row.data();
  const char* end = p + row.size();
  while (!row.empty()) {
    const char* stop = scan::field_end(p, end, delimiter);
    types.push_back(type_of({p, static_cast<size_t>(stop - p)}));
    if (stop == end || *stop != delimiter) break;
    p = stop + 1;
  }
  return types;
}

Samples make_samples(uint64_t capacity, uint64_t size) {
  Samples samples;
  samples.reserve(std::max(capacity, size));
  samples.resize(size);
  return samples;
}

// Calls read(field) for the column's field in every row that has one, and stores what it returns.
template <typename Read>
uint64_t read_piece(const Rows& rows, size_t piece, uint64_t column, char delimiter, double* out, Read read) {
  const scan::RowSpan span = rows.span(piece);
  const scan::Level level = scan::best_level();
  uint64_t missing = 0;
  out += rows.first_row_of(piece);
  for (size_t row = 0; row < span.rows; ++row) {
    const char* end = span.end(row);
    const char* p = scan::pass_fields(level, span.start(row), end, span.readable, delimiter, column);
    const char* stop = p != nullptr ? scan::field_end(p, end, delimiter) : nullptr;
    if (p == stop) {
      out[row] = std::bit_cast<double>(scan::missing_bits);
      ++missing;
    } else {
      out[row] = read(std::string_view(p, static_cast<size_t>(stop - p)));
    }
  }
  return missing;
}

uint64_t sum(const std::vector<uint64_t>& counts) {
  uint64_t total = 0;
  for (const uint64_t count : counts) total += count;
  return total;
}

Column read_hexadecimals(const Rows& rows, uint64_t column, char delimiter, uint64_t capacity) {
  Column result{.values = make_samples(capacity, rows.rows())};
  std::vector<uint64_t> missing(rows.pieces());
  rows.for_each_piece([&](size_t piece) {
    missing[piece] = read_piece(
        rows, piece, column, delimiter, result.values.data(),
        [](std::string_view field) { return read_hexadecimal(field.data(), field.data() + field.size()); });
  });
  result.missing = sum(missing);
  return result;
}

// Texts are numbered within each piece first, so that the tag table is asked once for each text, in
// the order of the rows.
Column read_texts(const Rows& rows, uint64_t column, char delimiter, uint64_t capacity,
                  std::string_view key) {
  Column result{.values = make_samples(capacity, rows.rows())};
  std::vector<uint64_t> missing(rows.pieces());
  std::vector<std::vector<std::string_view>> texts(rows.pieces());
  rows.for_each_piece([&](size_t piece) {
    std::unordered_map<std::string_view, size_t> numbers;
    missing[piece] =
        read_piece(rows, piece, column, delimiter, result.values.data(), [&](std::string_view field) {
          const auto [entry, is_new] = numbers.try_emplace(field, numbers.size());
          if (is_new) texts[piece].push_back(field);
          return static_cast<double>(entry->second);
        });
  });
  result.missing = sum(missing);

  std::unordered_map<std::string_view, double> tags;
  std::vector<std::vector<double>> values(rows.pieces());
  for (size_t piece = 0; piece < rows.pieces(); ++piece) {
    for (const std::string_view text : texts[piece]) {
      auto [entry, is_new] = tags.try_emplace(text, 0.0);
      if (is_new) entry->second = mirn3::tag::fetch_or_create(key, text);
      values[piece].push_back(entry->second);
    }
  }
  rows.for_each_piece([&](size_t piece) {
    double* out = result.values.data() + rows.first_row_of(piece);
    for (size_t row = 0; row < rows.span(piece).rows; ++row) {
      if (!scan::is_missing(out[row])) out[row] = values[piece][static_cast<size_t>(out[row])];
    }
  });
  return result;
}

double read_time(const scan::RowSpan& span, size_t row, char delimiter, int32_t type) {
  const char* start = span.start(row);
  const char* stop = scan::field_end(start, span.end(row), delimiter);
  return mirn3::utc::to_double({start, static_cast<size_t>(stop - start)}, type);
}

// The times that are not plain numbers, or all of them.
void read_times(const Rows& rows, char delimiter, int32_t type, bool only_unread, Samples& time) {
  rows.for_each_piece([&](size_t piece) {
    const scan::RowSpan span = rows.span(piece);
    double* out = time.data() + rows.first_row_of(piece);
    for (size_t row = 0; row < span.rows; ++row) {
      if (!only_unread || scan::is_unread(out[row])) out[row] = read_time(span, row, delimiter, type);
    }
  });
}

// How many rows a text has at most, judging by its beginning; 0 when that does not tell.
uint64_t likely_rows(std::string_view text) {
  constexpr size_t judged_by = size_t{1} << 16;
  const std::string_view beginning = text.substr(0, judged_by);
  const auto rows = static_cast<uint64_t>(std::count(beginning.begin(), beginning.end(), '\n'));
  return rows * (text.size() / beginning.size() + 1) * 9 / 8;
}

}  // namespace

ReaderDelimited::Learned::Learned(const std::filesystem::path& path, const ReaderDelimited& reader,
                                  uint64_t column)
    : Learned(path, reader, column, std::optional<Filling>()) {}

ReaderDelimited::Learned::Learned(const std::filesystem::path& path, const ReaderDelimited& reader,
                                  uint64_t column, std::optional<Filling> filling)
    : delimiter(reader.delimiter),
      time_type(reader.time_type),
      last_title(reader.variables().size()),
      rows(path, delimiter, reader.header_lines, DelimitedRows::usual_piece_bytes,
           [&](std::string_view text, size_t pieces) {
             return read_while_found(text, pieces, column, filling);
           }) {
  if (filling) finish(std::move(*filling), rows.line_count() + spare_rows);
}

// Begins to read a column, with those after it if it is the first. Not where the beginning of the text
// promises more rows than there is memory for: it may promise anything.
DelimitedRows::Visit ReaderDelimited::Learned::read_while_found(std::string_view text, size_t pieces,
                                                                uint64_t column,
                                                                std::optional<Filling>& filling) {
  types = detect_types(text.substr(0, text.find('\n')), delimiter);
  const uint64_t room = likely_rows(text);
  const uint64_t most = mirn3::mem::free_budget() / share_ahead / (2 * sizeof(double));
  if (pieces < least_pieces_at_once || room == 0 || room > most || type_at(column) != ValueType::number) {
    return {};
  }
  const size_t columns = column == 1 ? columns_from(column, room) : 1;
  filling.emplace(begin(column, columns, 0, room, pieces));
  return [&walk = filling->walk](size_t piece, const scan::RowSpan& span, uint64_t first_row) {
    walk.read(piece, span, first_row);
  };
}

bool ReaderDelimited::Learned::is_in_order(uint64_t column) {
  const bool in_order = column == last_column + 1;
  if (!in_order && column != last_column) ahead = 0;
  last_column = column;
  return in_order;
}

// How many columns, from this one on, the walk that reads it should read.
size_t ReaderDelimited::Learned::columns_from(uint64_t column, uint64_t count) {
  const uint64_t left = mirn3::mem::free_budget();
  const size_t wished = columns_ahead[std::min(ahead++, columns_ahead.size() - 1)];
  const size_t most = std::min({wished, static_cast<size_t>(left / share_ahead / sizeof(double) / count),
                                static_cast<size_t>(last_title + 1 - column)});
  size_t columns = 1;
  while (columns < most && type_at(column + columns) == ValueType::number &&
         ready.count(column + columns) == 0) {
    ++columns;
  }
  return columns;
}

void ReaderDelimited::Learned::finish_time(uint64_t unread) {
  if (unread != 0) read_times(rows, delimiter, time_type, true, time);
  if (time_type == mirn3::utc::time_of_day) mirn3::utc::unroll_midnight(time.span());
  has_time = true;
}

void ReaderDelimited::Learned::read_time_column(uint64_t capacity) {
  if (has_time) return;
  time = make_samples(capacity, rows.rows());
  read_times(rows, delimiter, time_type, false, time);
  finish_time(0);
}

// Makes room for columns of `room` rows, and for the time where it comes out of the same walk, which it does
// when it is plain numbers.
Filling ReaderDelimited::Learned::begin(uint64_t column, size_t columns, uint64_t capacity, uint64_t room,
                                        size_t pieces) {
  if (left_at == nullptr) left_at = std::make_unique_for_overwrite<uint32_t[]>(room);
  WalkPlan plan{.delimiter = delimiter,
                .first = column,
                .outputs = {},
                .room = room,
                .left_at = left_at.get(),
                .left_before = left_before};
  const auto make = [&] {
    Samples samples;
    samples.reserve(std::max(capacity, room));
    return samples;
  };
  const bool with_time = !has_time && time_type == mirn3::utc::seconds;
  Samples stamps;
  if (with_time) {
    stamps = make();
    plan.time = stamps.data();
  }
  std::vector<Column> made(columns);
  for (Column& one : made) {
    one.values = make();
    plan.outputs.push_back(one.values.data());
  }
  return {column, std::move(made), std::move(stamps), with_time, NumberWalk(std::move(plan), pieces)};
}

// Reads what is left to read, and keeps all of it; nothing when the rows turned out to be too many.
void ReaderDelimited::Learned::finish(Filling filling, uint64_t capacity) {
  const uint64_t count = rows.rows();
  const bool is_first = left_before == 0;
  if (!filling.walk.finish(rows)) {
    left_at.reset();
    return;
  }
  if (is_first) charge.add(count * sizeof(uint32_t));
  left_before = filling.walk.left_before();
  const auto end = [&](Samples& samples) {
    samples.resize(count);
    samples.trim(std::max(capacity, count));
  };
  const std::vector<uint64_t> odd = filling.walk.odd();
  if (filling.with_time) {
    end(filling.time);
    time = std::move(filling.time);
    finish_time(odd.back());
  }
  for (size_t k = 0; k < filling.columns.size(); ++k) {
    end(filling.columns[k].values);
    filling.columns[k].missing = odd[k];
    ready[filling.first + k] = std::move(filling.columns[k]);
  }
}

Column ReaderDelimited::Learned::numbers(uint64_t column, bool in_order, uint64_t capacity) {
  if (ready.count(column) == 0) {
    const uint64_t count = rows.rows();
    const size_t columns = in_order ? columns_from(column, count) : 1;
    finish(begin(column, columns, capacity, count, rows.pieces()), capacity);
  }
  const auto found = ready.find(column);
  Column values = std::move(found->second);
  ready.erase(found);
  return values;
}

ReaderDelimited::ReaderDelimited(std::filesystem::path source, char field_delimiter)
    : Reader(std::move(source)), delimiter(field_delimiter) {
  if (delimiter == '\n' || delimiter == '\r' || delimiter == '\0') {
    throw mirn3::exc::error_t("A character that ends lines cannot separate fields");
  }
}

ReaderDelimited::~ReaderDelimited() = default;

void ReaderDelimited::scan() {
  DelimitedHeader header;
  {
    const mirn3::sys::Mapping mapping(path_);
    header = read_delimited_header(mapping.text(), delimiter, path_.string());
  }
  header_lines = header.lines;
  time_type = mirn3::utc::guess_type(header.first_time);

  root_.children.reserve(header.titles.size());
  for (size_t i = 0; i < header.titles.size(); ++i) {
    const std::string title = mirn3::str::to_utf8(header.titles[i]);
    root_.children.push_back({.name = title, .full_name = title, .children = {}});
    index_[title] = i + 1;
  }
  if (!header.warning.empty()) warn(header.warning);
}

std::shared_ptr<ReaderDelimited::Learned> ReaderDelimited::learn(uint64_t column) {
  return kept_.current(
      path_, [&](const mirn3::sys::FileStamp&) { return std::make_shared<Learned>(path_, *this, column); });
}

void ReaderDelimited::forget() noexcept { kept_.drop(); }

void ReaderDelimited::load(rto_t& request) {
  const auto entry = index_.find(std::string(request.name));
  if (entry == index_.end()) return refuse_name(request);
  const uint64_t column = entry->second;
  const std::shared_ptr<Learned> learned = learn(column);
  const Rows& rows = learned->rows;
  row_capacity = rows.line_count() + spare_rows;
  const uint64_t count = rows.rows();
  if (count == 0) return;

  const bool in_order = learned->is_in_order(column);
  const ValueType type = learned->type_at(column);
  Column values;
  if (type == ValueType::text) {
    values = read_texts(rows, column, delimiter, row_capacity, request.tag_key);
  } else if (type == ValueType::hexadecimal) {
    values = read_hexadecimals(rows, column, delimiter, row_capacity);
  } else {
    values = learned->numbers(column, in_order, row_capacity);
  }
  learned->read_time_column(row_capacity);

  Samples x;
  if (values.missing == 0) {
    x = learned->time;
  } else {
    x = make_samples(row_capacity, count);
    size_t kept = 0;
    for (size_t row = 0; row < count; ++row) {
      if (scan::is_missing(values.values[row])) continue;
      x[kept] = learned->time[row];
      values.values[kept++] = values.values[row];
    }
    x.resize(kept);
    values.values.resize(kept);
  }
  request.x = std::move(x);
  request.y = std::move(values.values);
  check_time_vector(*this, request.x);
  if (type == ValueType::text) save_tags();

  if (values.missing != 0 || rows.has_unfinished_row()) {
    mirn3::log::write(
        mirn3::log::warning,
        fmt::format("File '{}', variable '{}': {} of {} rows skipped for a missing value{}", path_.string(),
                    request.name, values.missing, count,
                    rows.has_unfinished_row() ? "; the last line is not finished and was left out" : ""));
  }
  if (mirn3::mem::memory_used > mirn3::mem::memory_bank) forget();
}

}  // namespace mirn2::rd
