// Decompresses chunks on all cores.
#include "backends/hdf5/chunks.h"

#include <zlib.h>

#include <algorithm>
#include <optional>

#include "runtime/exc.h"
#include "runtime/par.h"

namespace mirn2::rd::hdf5 {

namespace {

using mirn3::exc::error_t;
using Bytes = std::vector<unsigned char>;

// How the data set is cut up and packed.
struct Layout {
  hsize_t chunk[2] = {1, 1};
  uint64_t chunk_bytes = 0;
  size_t element = 0;
  int shuffle = -1;  // positions of the filters; -1 without
  int deflate = -1;
  int fletcher32 = -1;
};

std::optional<Layout> layout_of(hid_t dataset, const Table& table) {
  const Properties creation(H5Dget_create_plist(dataset), "HDF5: layout");
  Layout layout;
  if (H5Pget_layout(creation) != H5D_CHUNKED ||
      H5Pget_chunk(creation, table.rank, layout.chunk) != table.rank)
    return std::nullopt;
  const int filters = H5Pget_nfilters(creation);
  for (int i = 0; i < filters; ++i) {
    unsigned flags = 0, settings = 0;
    size_t values = 0;
    const H5Z_filter_t filter =
        H5Pget_filter2(creation, static_cast<unsigned>(i), &flags, &values, nullptr, 0, nullptr, &settings);
    // Any of these, in the order in which they make sense.
    if (filter == H5Z_FILTER_SHUFFLE && i == 0) {
      layout.shuffle = i;
    } else if (filter == H5Z_FILTER_DEFLATE && layout.deflate < 0 && layout.fletcher32 < 0) {
      layout.deflate = i;
    } else if (filter == H5Z_FILTER_FLETCHER32 && i == filters - 1) {
      layout.fletcher32 = i;
    } else {
      return std::nullopt;
    }
  }
  const Type type(H5Dget_type(dataset), "HDF5: type");
  if (!is_stored_as_read(type)) return std::nullopt;
  layout.element = H5Tget_size(type);
  // The library bounds each dimension by 2^32, and a chunk by as many bytes.
  const uint64_t elements = layout.chunk[0] * layout.chunk[1];
  if (elements == 0 || elements > UINT32_MAX || layout.element == 0) return std::nullopt;
  layout.chunk_bytes = elements * layout.element;
  samples::check_size(layout.chunk_bytes / 16, "(chunk)");
  return layout;
}

// Fletcher's sums of the big-endian halfwords, the second one high.
uint32_t fletcher32(std::span<const unsigned char> bytes) {
  constexpr size_t most_at_once = 360;  // halfwords, before the sums could overflow
  uint32_t first = 0, second = 0;
  const auto fold = [](uint32_t sum) { return (sum & 0xffff) + (sum >> 16); };
  for (size_t at = 0; at < bytes.size();) {
    const size_t end = std::min(bytes.size(), at + 2 * most_at_once);
    for (; at < end; at += 2) {
      first += static_cast<uint32_t>(bytes[at]) << 8 | (at + 1 < end ? bytes[at + 1] : 0U);
      second += first;
    }
    first = fold(first);
    second = fold(second);
  }
  return fold(second) << 16 | fold(first);
}

// A chunk as stored, and where it lies.
struct Chunk {
  hsize_t at[2] = {0, 0};
  uint32_t skipped = 0;  // filters that were not applied, by position
  Bytes bytes;           // empty: never written
};

class Decompressor {
 public:
  Decompressor(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted,
               std::string_view name, const Layout& layout)
      : dataset_(dataset), table_(table), rows_(rows), wanted_(wanted), name_(name), layout_(layout) {
    read_fill_value();
    const File file(H5Iget_file_id(dataset), "HDF5: file");
    if (H5Fget_filesize(file, &file_size_) < 0) fail("HDF5: size of the file");
  }

  void run() {
    const auto row_of = static_cast<size_t>(table_.row_dimension);
    const hsize_t chunk_rows = layout_.chunk[row_of];
    const hsize_t chunk_columns = table_.rank == 2 ? layout_.chunk[1 - row_of] : 1;
    std::vector<uint64_t> columns;  // of chunks
    for (const Wanted& w : wanted_) columns.push_back(w.column / chunk_columns * chunk_columns);
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    for (uint64_t row = 0; row < rows_; row += chunk_rows) {
      for (const uint64_t column : columns) {
        Chunk chunk;
        chunk.at[row_of] = row;
        if (table_.rank == 2) chunk.at[1 - row_of] = column;
        fetch(std::move(chunk));
      }
    }
    decompress_waiting();
  }

 private:
  static constexpr uint64_t most_waiting = 16 << 20;  // decompressed bytes

  void read_fill_value() {
    const Properties creation(H5Dget_create_plist(dataset_), "HDF5: layout");
    const Type type(H5Dget_type(dataset_), "HDF5: type");
    fill_.resize(layout_.element);
    H5D_fill_value_t defined = H5D_FILL_VALUE_UNDEFINED;
    if (H5Pfill_value_defined(creation, &defined) < 0 || defined == H5D_FILL_VALUE_UNDEFINED) return;
    if (H5Pget_fill_value(creation, type, fill_.data()) < 0) fail("HDF5: fill value");
  }

  void fetch(Chunk chunk) {
    hsize_t stored = 0;
    if (H5Dget_chunk_storage_size(dataset_, chunk.at, &stored) < 0) stored = 0;  // not there
    if (stored > std::min<uint64_t>(layout_.chunk_bytes + layout_.chunk_bytes / 8 + 4096, file_size_))
      damaged();
    chunk.bytes.resize(stored);
    if (stored > 0 && H5Dread_chunk(dataset_, H5P_DEFAULT, chunk.at, &chunk.skipped, chunk.bytes.data()) < 0)
      fail(fmt::format("Variable '{:s}' cannot be read", name_));
    waiting_.push_back(std::move(chunk));
    if (waiting_.size() * layout_.chunk_bytes >= most_waiting && waiting_.size() >= mirn3::par::workers())
      decompress_waiting();
  }

  void decompress_waiting() {
    mirn3::par::ranges(waiting_.size(), 1, [&](size_t first, size_t last) {
      Bytes decompressed, sorted;
      for (size_t i = first; i < last; ++i)
        deliver(waiting_[i], decompress(waiting_[i], decompressed, sorted));
    });
    waiting_.clear();
  }

  bool applies(const Chunk& chunk, int filter) const {
    return filter >= 0 && (chunk.skipped >> filter & 1) == 0;
  }

  // The chunk's elements, in `decompressed`, in `sorted` or where they are; null when it was never written.
  const unsigned char* decompress(const Chunk& chunk, Bytes& decompressed, Bytes& sorted) const {
    constexpr uint64_t most_deflated = 1032;  // bytes that one can stand for
    if (chunk.bytes.empty()) return nullptr;
    std::span<const unsigned char> now = chunk.bytes;
    if (applies(chunk, layout_.fletcher32)) now = checked(now);
    if (applies(chunk, layout_.deflate)) {
      if (layout_.chunk_bytes / most_deflated > now.size()) damaged();
      decompressed.resize(layout_.chunk_bytes);
      uLongf size = decompressed.size();
      const int outcome = uncompress(decompressed.data(), &size, now.data(), now.size());
      if (outcome != Z_OK || size != decompressed.size()) damaged();
      now = decompressed;
    }
    if (now.size() < layout_.chunk_bytes) damaged();
    if (!applies(chunk, layout_.shuffle) || layout_.element == 1) return now.data();
    sorted.resize(layout_.chunk_bytes);
    unshuffle(now.data(), sorted.data());
    return sorted.data();
  }

  // The bytes without the checksum at their end, of which an early version of the library swapped the bytes.
  std::span<const unsigned char> checked(std::span<const unsigned char> stored) const {
    if (stored.size() < sizeof(uint32_t)) damaged();
    const auto bytes = stored.first(stored.size() - sizeof(uint32_t));
    const unsigned char* const end = stored.data() + bytes.size();
    const uint32_t found = end[0] | end[1] << 8U | end[2] << 16U | static_cast<uint32_t>(end[3]) << 24U;
    const uint32_t sum = fletcher32(bytes);
    if (found != sum && found != ((sum & 0x00ff00ff) << 8 | (sum >> 8 & 0x00ff00ff))) damaged();
    return bytes;
  }

  // Stored are all first bytes of the elements, then all second bytes, and so on.
  void unshuffle(const unsigned char* from, unsigned char* to) const {
    switch (layout_.element) {
      case 2:
        return unshuffle_of<2>(from, to);
      case 4:
        return unshuffle_of<4>(from, to);
      case 8:
        return unshuffle_of<8>(from, to);
      default:
        break;
    }
    const size_t count = layout_.chunk_bytes / layout_.element;
    for (size_t byte = 0; byte < layout_.element; ++byte) {
      for (size_t i = 0; i < count; ++i) to[i * layout_.element + byte] = from[byte * count + i];
    }
  }

  template <size_t Element>
  void unshuffle_of(const unsigned char* from, unsigned char* to) const {
    const size_t count = layout_.chunk_bytes / Element;
    for (size_t i = 0; i < count; ++i) {
      for (size_t byte = 0; byte < Element; ++byte) to[i * Element + byte] = from[byte * count + i];
    }
  }

  void deliver(const Chunk& chunk, const unsigned char* elements) const {
    const auto row_of = static_cast<size_t>(table_.row_dimension);
    const uint64_t first_row = chunk.at[row_of];
    const uint64_t count = std::min<uint64_t>(layout_.chunk[row_of], rows_ - first_row);
    const uint64_t first_column = table_.rank == 2 ? chunk.at[1 - row_of] : 0;
    const uint64_t columns = table_.rank == 2 ? layout_.chunk[1 - row_of] : 1;
    for (const Wanted& w : wanted_) {
      if (w.column < first_column || w.column - first_column >= columns) continue;
      if (elements == nullptr) {
        samples::widen(w.leaf->number, fill_.data() + w.leaf->offset, 0, count, w.to + first_row);
        continue;
      }
      const uint64_t before = (w.column - first_column) * (row_of == 1 ? layout_.chunk[1] : 1);
      const uint64_t apart = row_of == 1 ? 1 : columns;
      samples::widen(w.leaf->number, elements + before * layout_.element + w.leaf->offset,
                     apart * layout_.element, count, w.to + first_row);
    }
  }

  [[noreturn]] void damaged() const {
    throw error_t(fmt::format("Variable '{:s}' cannot be read: a piece of it is damaged", name_));
  }

  hid_t dataset_;
  const Table& table_;
  uint64_t rows_;
  std::span<const Wanted> wanted_;
  std::string_view name_;
  const Layout& layout_;
  Bytes fill_;
  hsize_t file_size_ = 0;
  std::vector<Chunk> waiting_;
};

}  // namespace

bool read_chunks(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted,
                 std::string_view name) {
  const std::optional<Layout> layout = layout_of(dataset, table);
  if (!layout) return false;
  Decompressor(dataset, table, rows, wanted, name, *layout).run();
  return true;
}

}  // namespace mirn2::rd::hdf5
