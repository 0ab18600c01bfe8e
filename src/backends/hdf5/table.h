// A data set as a table: rows of samples, columns of elements, and the numbers inside an element.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "backends/hdf5/library.h"
#include "backends/samples.h"
#include "runtime/exc.h"

namespace mirn2::rd::hdf5 {

// One value inside an element: a number, or a text that becomes one.
struct Leaf {
  enum class Form : uint8_t {
    number,      // converted here
    odd_number,  // converted by the library: long double and other layouts
    fixed_text,  // `size` bytes
    text,        // of any length, kept apart from the element
  };

  std::vector<std::string> names;  // members on the way to it; empty for an element that is one value
  std::vector<unsigned> route;     // the same as positions in their compounds (in an array: of the element)
  Form form = Form::number;
  samples::Number number;
  size_t offset = 0;  // in the element
  size_t size = 0;

  bool is_text() const noexcept { return form == Form::fixed_text || form == Form::text; }
  // Whether the same bytes are meant.
  bool same_layout(const Leaf& other) const noexcept {
    return form == other.form && offset == other.offset && size == other.size &&
           number.kind == other.number.kind && number.swapped == other.number.swapped;
  }
};

// The shape of a data set and what its elements hold.
struct Table {
  uint64_t rows = 0;     // samples
  uint64_t columns = 1;  // elements a row
  int rank = 1;
  int row_dimension = 0;  // which of the dimensions counts the rows
  std::vector<Leaf> leaves;
};

constexpr size_t longest_name = 1024;  // many entries can share one long name

// Describes an open data set. Returns why it holds no samples; null when it does.
const char* describe(hid_t dataset, Table& table);

// Whether elements lie in the file as they are read: nothing in them points elsewhere.
bool is_stored_as_read(hid_t type);

// Throws when the data set claims so many chunks that looking for each would take forever, and more than the
// file can hold.
void check_chunks(hid_t dataset, const Table& table, std::string_view name);

// Reads one value of each row into `to`, `rows` samples from the first. The elements are read in blocks that
// no chunk lies across, so that each chunk is decompressed once; `wanted` may name many values for one pass.
struct Wanted {
  uint64_t column;
  const Leaf* leaf;
  double* to;
};
void read_numbers(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted,
                  std::string_view name, uint64_t file_size);

// Reads a text column, each text through the tag table `tag_key`. The size of the file bounds that of one
// text.
void read_texts(hid_t dataset, const Table& table, uint64_t rows, const Wanted& wanted,
                std::string_view tag_key, std::string_view name, uint64_t file_size);

// Thrown by both when the library did not survive what it had to decompress or convert, which is tried in a
// copy of the process first; what is read without the library's help is not.
class LibraryFails : public mirn3::exc::error_t {
 public:
  explicit LibraryFails(std::string_view name);
};

}  // namespace mirn2::rd::hdf5
