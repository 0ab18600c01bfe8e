// Reading a table through the library: block after block of rows, whatever filters the data set has.
#include <algorithm>
#include <functional>
#include <string>
#include <unordered_map>

#include "backends/hdf5/chunks.h"
#include "backends/hdf5/probe.h"
#include "backends/hdf5/table.h"
#include "readers/text_tags.h"
#include "runtime/exc.h"

namespace mirn2::rd::hdf5 {

namespace {

constexpr uint64_t block_bytes = 4 << 20;

// The dimensions of the chunks; rows of a data set in one piece count as chunks of one row.
uint64_t rows_of_chunk(hid_t dataset, const Table& table, size_t element) {
  const Properties creation(H5Dget_create_plist(dataset), "HDF5: layout");
  hsize_t chunk[2] = {1, 1};
  if (H5Pget_layout(creation) != H5D_CHUNKED || H5Pget_chunk(creation, table.rank, chunk) < 0) return 1;
  samples::check_size(chunk[0] * chunk[1] / 16 * element, "(chunk)");
  return std::max<uint64_t>(1, chunk[table.row_dimension]);
}

// The type under which whole elements are read: as they lie in the file, without what would have to be
// allocated member by member.
Type plain_part(hid_t type) {
  if (H5Tget_class(type) != H5T_COMPOUND) return Type(H5Tcopy(type), "HDF5: type");
  Type part(H5Tcreate(H5T_COMPOUND, H5Tget_size(type)), "HDF5: type");
  const int count = H5Tget_nmembers(type);
  for (int i = 0; i < count; ++i) {
    const auto member = static_cast<unsigned>(i);
    const Type inner(H5Tget_member_type(type, member), "HDF5: member");
    const H5T_class_t kind = H5Tget_class(inner);
    const bool is_plain =
        kind == H5T_INTEGER || kind == H5T_FLOAT || kind == H5T_ENUM || kind == H5T_BITFIELD ||
        (kind == H5T_STRING && H5Tis_variable_str(inner) == 0) || kind == H5T_COMPOUND ||
        (kind == H5T_ARRAY && H5Tdetect_class(inner, H5T_VLEN) == 0 &&
         H5Tdetect_class(inner, H5T_REFERENCE) == 0 && H5Tdetect_class(inner, H5T_STRING) == 0);
    if (!is_plain) continue;
    const Type kept = plain_part(inner);
    if (kind == H5T_COMPOUND && H5Tget_nmembers(kept) == 0) continue;
    char* name = H5Tget_member_name(type, member);
    if (name == nullptr) fail("HDF5: member name");
    const herr_t inserted = H5Tinsert(part, name, H5Tget_member_offset(type, member), kept);
    H5free_memory(name);
    if (inserted < 0) fail("HDF5: member");
  }
  return part;
}

// The type of one value inside an element; of enumerations, that of their numbers.
Type leaf_type(hid_t type, const Leaf& leaf) {
  Type inner(H5Tcopy(type), "HDF5: type");
  for (const unsigned step : leaf.route) {
    inner = H5Tget_class(inner) == H5T_COMPOUND ? Type(H5Tget_member_type(inner, step), "HDF5: member")
                                                : Type(H5Tget_super(inner), "HDF5: array");
  }
  while (H5Tget_class(inner) == H5T_ENUM) inner = Type(H5Tget_super(inner), "HDF5: enumeration");
  return inner;
}

// An element that holds nothing but the one text of varying length.
Type only_text(hid_t type, std::span<const unsigned> route) {
  if (route.empty()) return Type(H5Tcopy(type), "HDF5: text");
  const Type member(H5Tget_member_type(type, route.front()), "HDF5: member");
  const Type inner = only_text(member, route.subspan(1));
  Type outer(H5Tcreate(H5T_COMPOUND, H5Tget_size(inner)), "HDF5: text");
  char* name = H5Tget_member_name(type, route.front());
  if (name == nullptr) fail("HDF5: member name");
  const herr_t inserted = H5Tinsert(outer, name, 0, inner);
  H5free_memory(name);
  if (inserted < 0) fail("HDF5: member");
  return outer;
}

// A rectangle of the data set, and the memory it is read into.
struct Selection {
  Space file;
  Space memory;
};

Selection select(hid_t dataset, const Table& table, uint64_t first_row, uint64_t rows, uint64_t first_column,
                 uint64_t columns) {
  Selection selection{Space(H5Dget_space(dataset), "HDF5: dimensions"), {}};
  hsize_t start[2] = {first_row, first_column}, count[2] = {rows, columns};
  if (table.row_dimension == 1) {
    std::swap(start[0], start[1]);
    std::swap(count[0], count[1]);
  }
  if (H5Sselect_hyperslab(selection.file, H5S_SELECT_SET, start, nullptr, count, nullptr) < 0)
    fail("HDF5: selection");
  selection.memory = Space(H5Screate_simple(table.rank, count, nullptr), "HDF5: selection");
  return selection;
}

// A block of whole elements in memory.
struct Block {
  const unsigned char* bytes;
  uint64_t first_row, rows;
  uint64_t first_column, columns;
  bool by_columns;  // one column after the other
  size_t element;

  const unsigned char* at(uint64_t column) const {
    return bytes + (column - first_column) * (by_columns ? rows : 1) * element;
  }
  size_t stride() const { return (by_columns ? 1 : columns) * element; }
};

template <typename Use>
void each_block(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted, Use use) {
  const Type stored(H5Dget_type(dataset), "HDF5: type");
  const Type type = plain_part(stored);
  const size_t element = H5Tget_size(type);
  const auto [low, high] = std::minmax_element(
      wanted.begin(), wanted.end(), [](const Wanted& a, const Wanted& b) { return a.column < b.column; });
  const uint64_t first_column = low->column, columns = high->column - first_column + 1;
  const uint64_t layer = rows_of_chunk(dataset, table, element);
  const uint64_t layers = std::max<uint64_t>(1, block_bytes / element / columns / layer);
  const uint64_t step = std::min(rows, layer > rows / layers ? rows : layer * layers);
  samples::check_size(step * columns * element / 16, "(block)");
  std::vector<unsigned char> bytes(step * columns * element);
  for (uint64_t row = 0; row < rows; row += step) {
    const uint64_t count = std::min(step, rows - row);
    const Selection selection = select(dataset, table, row, count, first_column, columns);
    if (H5Dread(dataset, type, selection.memory, selection.file, H5P_DEFAULT, bytes.data()) < 0)
      fail("The samples cannot be read");
    use(Block{bytes.data(), row, count, first_column, columns, table.row_dimension == 1, element});
  }
}

// Numbers in a layout that only the library knows.
class OddNumbers {
 public:
  OddNumbers(hid_t dataset, const Leaf& leaf)
      : type_(leaf_type(Type(H5Dget_type(dataset), "HDF5: type"), leaf)), leaf_(leaf) {}

  void convert(const unsigned char* from, size_t stride, size_t n, double* to) {
    if (H5Tget_size(type_) != leaf_.size) fail("The samples cannot be converted");
    room_.resize(n * std::max(leaf_.size, sizeof(double)));
    for (size_t i = 0; i < n; ++i) std::memcpy(room_.data() + i * leaf_.size, from + i * stride, leaf_.size);
    if (H5Tconvert(type_, H5T_NATIVE_DOUBLE, n, room_.data(), nullptr, H5P_DEFAULT) < 0)
      fail("The samples cannot be converted");
    std::memcpy(to, room_.data(), n * sizeof(double));
  }

 private:
  Type type_;
  const Leaf& leaf_;
  std::vector<unsigned char> room_;
};

void read_varying_texts(hid_t dataset, const Table& table, uint64_t rows, const Wanted& wanted,
                        TextTags& tags, uint64_t step, bool trial) {
  const Type type = only_text(Type(H5Dget_type(dataset), "HDF5: type"), wanted.leaf->route);
  std::vector<char*> texts(step);
  for (uint64_t row = 0; row < rows; row += step) {
    const uint64_t count = std::min(step, rows - row);
    std::fill(texts.begin(), texts.end(), nullptr);
    const Selection selection = select(dataset, table, row, count, wanted.column, 1);
    const herr_t outcome =
        H5Dread(dataset, type, selection.memory, selection.file, H5P_DEFAULT, texts.data());
    struct Reclaim {
      hid_t type, space;
      char** texts;
      ~Reclaim() { H5Dvlen_reclaim(type, space, H5P_DEFAULT, texts); }
    };
    if (outcome < 0) fail("The texts cannot be read");
    const Reclaim reclaim{type, selection.memory, texts.data()};
    for (uint64_t i = 0; i < count && !trial; ++i)
      wanted.to[row + i] = tags.number(texts[i] != nullptr ? texts[i] : "");
  }
}

void read_through_library(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted,
                          std::string_view name) {
  const Type stored(H5Dget_type(dataset), "HDF5: type");
  const Leaf& first = *wanted.front().leaf;
  if (wanted.size() == 1 && first.form == Leaf::Form::number && first.number.is_plain_double() &&
      first.route.empty()) {
    const Selection selection = select(dataset, table, 0, rows, wanted.front().column, 1);
    if (H5Dread(dataset, H5T_NATIVE_DOUBLE, selection.memory, selection.file, H5P_DEFAULT,
                wanted.front().to) < 0)
      fail(fmt::format("Variable '{:s}' cannot be read", name));
    return;
  }
  each_block(dataset, table, rows, wanted, [&](const Block& block) {
    for (const Wanted& w : wanted) {
      const unsigned char* from = block.at(w.column) + w.leaf->offset;
      double* to = w.to + block.first_row;
      if (w.leaf->form == Leaf::Form::number) {
        samples::widen(w.leaf->number, from, block.stride(), block.rows, to);
      } else {
        OddNumbers(dataset, *w.leaf).convert(from, block.stride(), block.rows, to);
      }
    }
  });
}

bool has_filters(hid_t dataset) {
  const Properties creation(H5Dget_create_plist(dataset), "HDF5: layout");
  return H5Pget_nfilters(creation) != 0;
}

// Filters and conversions of the library believe what a damaged file says about sizes.
void try_first(uint64_t file_size, std::string_view name, const std::function<void()>& task) {
  const Outcome outcome = attempt(file_size, task);
  if (!outcome.survived) throw LibraryFails(name);
  // Not tried again without limits. The text names the variable where the library said something.
  if (!outcome.failure.empty()) throw mirn3::exc::error_t(outcome.failure);
}

}  // namespace

void check_chunks(hid_t dataset, const Table& table, std::string_view name) {
  constexpr uint64_t most_unwritten = 1 << 21;
  const Properties creation(H5Dget_create_plist(dataset), "HDF5: layout");
  hsize_t chunk[2] = {1, 1};
  if (table.rows == 0 || H5Pget_layout(creation) != H5D_CHUNKED ||
      H5Pget_chunk(creation, table.rank, chunk) != table.rank)
    return;
  const uint64_t along = (table.rows - 1) / chunk[table.row_dimension] + 1;
  const uint64_t across = table.rank == 2 ? (table.columns - 1) / chunk[1 - table.row_dimension] + 1 : 1;
  if (along <= most_unwritten / across) return;
  const File file(H5Iget_file_id(dataset), "HDF5: file");
  hsize_t size = 0;
  if (H5Fget_filesize(file, &size) >= 0 && along <= size / across) return;
  throw mirn3::exc::error_t(fmt::format(
      "Variable '{:s}' claims {:d} samples in more pieces than the file can hold; the file is damaged", name,
      table.rows));
}

LibraryFails::LibraryFails(std::string_view name)
    : error_t(fmt::format("Variable '{:s}' is damaged: the HDF5 library fails on it", name)) {}

void read_numbers(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted,
                  std::string_view name, uint64_t file_size) {
  if (rows == 0 || wanted.empty()) return;
  const bool odd = std::any_of(wanted.begin(), wanted.end(),
                               [](const Wanted& w) { return w.leaf->form == Leaf::Form::odd_number; });
  if (!odd && (read_mapped(dataset, table, rows, wanted) || read_chunks(dataset, table, rows, wanted, name)))
    return;
  const auto read = [&] { read_through_library(dataset, table, rows, wanted, name); };
  if (odd || has_filters(dataset)) try_first(file_size, name, read);
  read();
}

void read_texts(hid_t dataset, const Table& table, uint64_t rows, const Wanted& wanted,
                std::string_view tag_key, std::string_view name, uint64_t file_size) {
  if (rows == 0) return;
  TextTags tags(tag_key);
  if (wanted.leaf->form == Leaf::Form::text) {
    // Many rows may point to one long text, and the library makes a copy for each: bounded by the block.
    constexpr uint64_t most_bytes = 256 << 20;
    const uint64_t step = std::clamp<uint64_t>(most_bytes / std::max<uint64_t>(file_size, 1), 1, 1 << 14);
    const auto read = [&](bool trial) {
      read_varying_texts(dataset, table, rows, wanted, tags, std::min(step, rows), trial);
    };
    try_first(file_size, name, [&] { read(true); });
    return read(false);
  }
  const bool padded =
      H5Tget_strpad(leaf_type(Type(H5Dget_type(dataset), "HDF5: type"), *wanted.leaf)) == H5T_STR_SPACEPAD;
  if (has_filters(dataset))
    try_first(file_size, name, [&] { each_block(dataset, table, rows, {&wanted, 1}, [](const Block&) {}); });
  each_block(dataset, table, rows, {&wanted, 1}, [&](const Block& block) {
    const unsigned char* from = block.at(wanted.column) + wanted.leaf->offset;
    for (uint64_t i = 0; i < block.rows; ++i, from += block.stride()) {
      const char* const bytes = reinterpret_cast<const char*>(from);
      std::string_view text(bytes, strnlen(bytes, wanted.leaf->size));
      if (padded) text = text.substr(0, text.find_last_not_of(' ') + 1);
      wanted.to[block.first_row + i] = tags.number(text);
    }
  });
}

}  // namespace mirn2::rd::hdf5
