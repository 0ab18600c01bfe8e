// From what a Parquet column stores to doubles.
#pragma once

#include <parquet/column_reader.h>
#include <parquet/schema.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "backends/parquet/dense.h"

namespace mirn2::rd {

// How the values of a column are stored and read.
enum class Stored : uint8_t {
  nothing_offered,  // lists, maps, binary data of fixed length, ...
  boolean,
  integer32,
  unsigned32,
  integer64,
  unsigned64,
  real16,
  real32,
  real64,
  decimal32,
  decimal64,
  decimal_bytes,  // big-endian in a byte array
  decimal_fixed,  // big-endian in a fixed number of bytes
  julian,         // nanoseconds of a day and the day, 12 bytes
  text,
};

// What a column's values mean: stored / ticks * seconds for integers, stored / 10^scale for decimals.
struct Meaning {
  Stored stored = Stored::nothing_offered;
  int64_t ticks = 1;    // stored units in one second (time stamps, times of day, durations)
  int64_t seconds = 1;  // seconds in one stored unit (days)
  int32_t scale = 0;    // digits after the point
  int32_t byte_width = 0;

  bool is_offered() const noexcept { return stored != Stored::nothing_offered; }
  bool is_axis() const noexcept {
    return is_offered() && stored != Stored::text && stored != Stored::boolean;
  }
};

// What a leaf column means by its annotations. Durations carry none, only the writer's own schema knows
// them: `duration_ticks` is not 0 for them.
Meaning meaning_of(const parquet::ColumnDescriptor& column, int64_t duration_ticks);

// Marks a row without a value until such rows are left out. Tested only in columns in which such rows were
// seen.
constexpr uint64_t missing_bits = 0x7ff8'6d69'7373'696eULL;
inline const double missing = std::bit_cast<double>(missing_bits);
inline bool is_missing(double value) noexcept { return std::bit_cast<uint64_t>(value) == missing_bits; }

// Where a column chunk's values come from. Every call begins at the first of them.
struct Chunk {
  const parquet::ColumnDescriptor& column;
  arrow::MemoryPool& pool;
  std::function<std::shared_ptr<parquet::ColumnReader>()> reader;
  std::function<PackedPages()> pages;  // without a reader where they cannot be had
};

// Gives the number of a text.
using TextNumber = std::function<double(std::string_view)>;

// Fills out[0..rows) from a column chunk. Returns whether rows without a value were seen. Throws
// mirn3::exc::error_t when the chunk holds fewer rows, and what the Parquet library throws.
bool read_chunk(const Chunk& chunk, const Meaning& meaning, size_t rows, double* out,
                const TextNumber& text_number);

}  // namespace mirn2::rd
