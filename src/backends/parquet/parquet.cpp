// Loading variables of Parquet files.
//
// The file stays mapped and its metadata parsed between loads. A time column is kept from the second time on
// that it is needed, so that the variables after that cost one column each.
#include "backends/parquet/parquet.h"

#include <arrow/buffer.h>
#include <arrow/io/memory.h>
#include <arrow/memory_pool.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <parquet/file_reader.h>
#include <parquet/properties.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <optional>
#include <span>
#include <utility>

#include "backends/parquet/columns.h"
#include "backends/parquet/values.h"
#include "readers/backend.h"
#include "readers/text_tags.h"
#include "runtime/exc.h"
#include "runtime/log.h"
#include "runtime/mem.h"
#include "runtime/num_ramp.h"
#include "runtime/par.h"
#include "runtime/sys.h"

namespace mirn2::rd {

namespace {

using mirn3::shared_vector;
using mirn3::exc::error_t;

// Pages and dictionaries being decoded may take this much, whatever a damaged file claims.
constexpr int64_t most_working_memory = int64_t{2} << 30;

// No file of so many bytes has more rows than this. Columns of one repeated value compress very well, so the
// factor is generous; it only keeps damaged counts from becoming allocations.
uint64_t most_rows(size_t file_bytes) { return (uint64_t{1} << 26) + uint64_t{file_bytes} * 4096; }

// Runs something that reads the file; every failure becomes one that names it.
template <typename Work>
auto reading(const std::filesystem::path& path, const Work& work) {
  const auto refuse = [&](const char* reason) {
    return error_t(fmt::format("Parquet file '{}' cannot be read: {}", path.string(), reason));
  };
  try {
    return work();
  } catch (const error_t& failure) {
    throw refuse(failure.what());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& failure) {
    throw refuse(failure.what());
  }
}

// Where a row group lies among all rows.
struct Rows {
  size_t first;
  size_t count;
};

std::vector<Rows> row_groups(const parquet::FileMetaData& metadata, size_t file_bytes) {
  std::vector<Rows> groups;
  uint64_t rows = 0;
  for (int i = 0; i < metadata.num_row_groups(); ++i) {
    const int64_t count = metadata.RowGroup(i)->num_rows();
    if (count < 0 || static_cast<uint64_t>(count) > most_rows(file_bytes) - rows) {
      throw error_t(fmt::format("it claims {} rows in row group {}, more than its size allows", count, i));
    }
    groups.push_back({rows, static_cast<size_t>(count)});
    rows += static_cast<uint64_t>(count);
  }
  return groups;
}

// Rows of a column, some of which may be missing.
struct Samples {
  shared_vector<double> values;
  bool has_missing = false;
};

// Leaves out the rows in which x or y is missing and returns how many stay.
size_t compact(double* x, double* y, size_t rows) {
  size_t kept = 0;
  for (size_t row = 0; row < rows; ++row) {
    x[kept] = x[row];
    y[kept] = y[row];
    kept += static_cast<size_t>(!is_missing(x[kept]) && !is_missing(y[kept]));
  }
  return kept;
}

// The same over all row groups, each on its own and then closed up.
void compact(shared_vector<double>& x, shared_vector<double>& y, std::span<const Rows> groups) {
  std::vector<size_t> kept(groups.size());
  mirn3::par::run(groups.size(), [&](size_t i) {
    kept[i] = compact(x.data() + groups[i].first, y.data() + groups[i].first, groups[i].count);
  });
  size_t end = 0;
  for (size_t i = 0; i < groups.size(); ++i) {
    for (double* values : {x.data(), y.data()}) {
      std::memmove(values + end, values + groups[i].first, kept[i] * sizeof(double));
    }
    end += kept[i];
  }
  const bool mostly_missing = end < x.size() / 2;
  x.resize(end);
  y.resize(end);
  if (mostly_missing) {  // gives the room back
    x = x.clone();
    y = y.clone();
  }
}

bool is_encrypted(std::span<const unsigned char> bytes) {
  constexpr std::string_view mark = "PARE";
  return bytes.size() >= mark.size() &&
         std::memcmp(bytes.data() + bytes.size() - mark.size(), mark.data(), mark.size()) == 0;
}

}  // namespace

struct ReaderParquet::Layout {
  std::vector<ParquetColumn> columns;
  std::string schema;  // as text, to notice that a rewritten file has other columns
};

// What is known of one state of the file. Only the thread inside load() changes it.
struct ReaderParquet::Learned {
  Learned(const std::filesystem::path& path, const mirn3::sys::FileStamp& state) : stamp(state), bytes(path) {
    const auto content = bytes.bytes();
    if (is_encrypted(content)) throw error_t("it is encrypted; decrypt it first");
    properties.set_page_checksum_verification(true);
    const auto buffer = std::make_shared<arrow::Buffer>(content.data(), static_cast<int64_t>(content.size()));
    file = parquet::ParquetFileReader::Open(std::make_shared<arrow::io::BufferReader>(buffer), properties);
    groups = row_groups(*file->metadata(), content.size());
    rows = groups.empty() ? 0 : groups.back().first + groups.back().count;
  }

  // The pages of a column in a row group, without the library's own decompression of Snappy.
  PackedPages pages(int leaf, int group) const;

  // Decodes a column's rows of one row group to out[0..]. Returns whether some are missing.
  bool read(int leaf, const Meaning& meaning, size_t group, double* out, const TextNumber& number) const;

  mirn3::sys::FileStamp stamp;
  mirn3::sys::Mapping bytes;
  arrow::ProxyMemoryPool own{arrow::default_memory_pool()};
  mutable arrow::CappedMemoryPool pool{&own, most_working_memory};
  parquet::ReaderProperties properties{&pool};
  std::unique_ptr<parquet::ParquetFileReader> file;
  std::vector<Rows> groups;
  size_t rows = 0;
  std::map<int, Samples> times;  // by column; common to all variables that go by it
};

bool ReaderParquet::Learned::read(int leaf, const Meaning& meaning, size_t group, double* out,
                                  const TextNumber& number) const {
  if (groups[group].count == 0) return false;
  const int ordinal = static_cast<int>(group);
  const auto row_group = file->RowGroup(ordinal);
  if (row_group->metadata()->ColumnChunk(leaf)->crypto_metadata() != nullptr) {
    throw error_t("the column is encrypted; decrypt it first");
  }
  const auto reader = [&] {
    return meaning.stored == Stored::text
               ? row_group->ColumnWithExposeEncoding(leaf, parquet::ExposedEncoding::DICTIONARY)
               : row_group->Column(leaf);
  };
  const Chunk chunk{
      .column = *file->metadata()->schema()->Column(leaf), .pool = pool, .reader = reader, .pages = [&] {
        return pages(leaf, ordinal);
      }};
  return read_chunk(chunk, meaning, groups[group].count, out, number);
}

PackedPages ReaderParquet::Learned::pages(int leaf, int group) const {
  const auto ranges = file->GetReadRanges({group}, {leaf});
  if (!ranges.ok() || ranges->size() != 1) return {};
  const auto [start, size] = ranges->front();
  const auto content = bytes.bytes();
  if (start < 0 || size < 0 || static_cast<uint64_t>(start) > content.size() ||
      static_cast<uint64_t>(size) > content.size() - static_cast<uint64_t>(start)) {
    return {};
  }
  const auto metadata = file->metadata()->RowGroup(group)->ColumnChunk(leaf);
  const bool is_snappy = metadata->compression() == parquet::Compression::SNAPPY;
  const auto packed = std::make_shared<arrow::Buffer>(content.data() + start, size);
  return {parquet::PageReader::Open(std::make_shared<arrow::io::BufferReader>(packed), metadata->num_values(),
                                    is_snappy ? parquet::Compression::UNCOMPRESSED : metadata->compression(),
                                    properties, *file->metadata()->schema()->Column(leaf)),
          is_snappy};
}

// The times that belong to a column: kept from an earlier load, or filled one row group at a time and on any
// thread.
class ReaderParquet::Times {
 public:
  Times(Learned& known, const ParquetColumn& column) : known_(known), column_(column) {
    if (column.axis == ParquetColumn::sample_indexes) {
      times_.values = mirn3::num::ramp(1.0, known.rows);
    } else if (const auto kept = known.times.find(column.axis); kept != known.times.end()) {
      times_ = kept->second;
    } else {
      times_.values.resize_for_overwrite(known.rows);
      is_new_ = true;
    }
  }

  bool is_new() const noexcept { return is_new_; }

  void fill(size_t group) {
    const auto [first, count] = known_.groups[group];
    if (count == 0) return;
    double* const out = times_.values.data() + first;
    if (known_.read(column_.axis, column_.axis_meaning, group, out, {})) found_missing_ = true;
  }

  // When all row groups are filled: the times, kept for later loads.
  const Samples& finish() {
    if (is_new_) {
      times_.has_missing = found_missing_;
      known_.times[column_.axis] = times_;
    }
    return times_;
  }

 private:
  Learned& known_;
  const ParquetColumn& column_;
  Samples times_;
  bool is_new_ = false;
  std::atomic<bool> found_missing_ = false;
};

ReaderParquet::ReaderParquet(std::filesystem::path source) : Reader(std::move(source)) {}

ReaderParquet::~ReaderParquet() = default;

void ReaderParquet::scan() {
  auto [fresh, found] = reading(path_, [&] {
    auto opened = std::make_shared<Learned>(path_, mirn3::sys::file_stamp(path_));
    auto columns = columns_of(*opened->file->metadata());
    if (columns.columns.empty()) {
      throw error_t(fmt::format("none of its columns has one number or text in each row: {}",
                                fmt::join(columns.left_out, ", ")));
    }
    return std::pair(std::move(opened), std::move(columns));
  });
  if (!found.left_out.empty()) {
    mirn3::log::write(mirn3::log::warning,
                      fmt::format("Not offered of Parquet file '{}', being lists, maps or data without a "
                                  "value in each row: {}",
                                  path_.string(), fmt::join(found.left_out, ", ")));
  }
  root_.children = std::move(found.tree);
  index_.clear();
  for (size_t i = 0; i < found.names.size(); ++i) index_[found.names[i]] = i;
  layout_ = std::make_unique<Layout>(
      Layout{std::move(found.columns), fresh->file->metadata()->schema()->ToString()});
  kept_.keep(std::move(fresh));
}

std::shared_ptr<ReaderParquet::Learned> ReaderParquet::learn() {
  return kept_.current(path_, [&](const mirn3::sys::FileStamp& stamp) {
    auto fresh = reading(path_, [&] { return std::make_shared<Learned>(path_, stamp); });
    if (fresh->file->metadata()->schema()->ToString() != layout_->schema) {
      throw error_t(fmt::format(
          "The columns of Parquet file '{}' have changed since it was opened; create its Container again",
          path_.string()));
    }
    return fresh;
  });
}

void ReaderParquet::forget() noexcept { kept_.drop(); }

void ReaderParquet::load(rto_t& request) {
  const auto found = index_.find(std::string(request.name));
  if (found == index_.end() || layout_ == nullptr) return refuse_name(request);
  const ParquetColumn& column = layout_->columns[found->second];
  const bool is_text = column.meaning.stored == Stored::text;
  const std::shared_ptr<Learned> known = learn();
  const std::vector<Rows>& groups = known->groups;

  shared_vector<double> y;
  y.resize_for_overwrite(known->rows);
  Times times(*known, column);
  TextTags tags(request.tag_key);
  const TextNumber number = [&](std::string_view text) { return tags.number(text); };
  std::atomic<bool> has_missing = false;
  const auto read_values = [&](size_t group) {
    double* const out = y.data() + groups[group].first;
    if (known->read(column.leaf, column.meaning, group, out, number)) has_missing = true;
  };

  reading(path_, [&] {
    // Texts are numbered in the order of the rows, so one thread goes through all of them. Numbers take turns
    // with their times: what keeps the memory busy goes beside what keeps a core busy.
    const size_t value_parts = is_text ? 1 : groups.size();
    const size_t time_parts = times.is_new() ? groups.size() : 0;
    mirn3::par::run(value_parts + time_parts, [&](size_t part) {
      if (is_text && part == 0) {
        for (size_t group = 0; group < groups.size(); ++group) read_values(group);
      } else if (is_text) {
        times.fill(part - 1);
      } else if (time_parts == 0) {
        read_values(part);
      } else if (part % 2 == 0) {
        times.fill(part / 2);
      } else {
        read_values(part / 2);
      }
    });
  });
  if (is_text) save_tags();
  auto [x, has_missing_times] = times.finish();
  if (has_missing || has_missing_times) {
    x.make_unique();
    compact(x, y, groups);
  }
  if (column.axis != ParquetColumn::sample_indexes) check_time_vector(*this, x);
  request.x = std::move(x);
  request.y = std::move(y);
}

}  // namespace mirn2::rd

KVALO_BACKEND(mirn2::rd::ReaderParquet)
