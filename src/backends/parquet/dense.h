// Column chunks in which every row has a value, straight from their pages.
//
// The library's own column reader decompresses a page, takes its levels apart, row for row, and copies the
// values twice. Most chunks of recorded numbers need none of that. Unusual chunks are left to it.
#pragma once

#include <parquet/column_page.h>
#include <parquet/column_reader.h>
#include <parquet/encoding.h>
#include <parquet/schema.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <utility>

namespace mirn2::rd {

// The pages of a chunk as they lie in the file or, where `is_snappy` is not set, decompressed.
struct PackedPages {
  std::unique_ptr<parquet::PageReader> reader;
  bool is_snappy = false;
};

// Where the values of a page should go. What lies `before` them, in bytes, may be written in the meantime,
// but is put back.
struct Place {
  uint8_t* values = nullptr;
  size_t before = 0;
};

// The values of pages, without their levels.
class DensePages {
 public:
  DensePages(PackedPages pages, const parquet::ColumnDescriptor& column, arrow::MemoryPool& pool)
      : pages_(std::move(pages)), column_(column), pool_(pool) {}

  std::shared_ptr<parquet::Page> next() { return pages_.reader->NextPage(); }
  const parquet::ColumnDescriptor& column() const noexcept { return column_; }
  arrow::MemoryPool& pool() const noexcept { return pool_; }

  // The encoded values of a page, good until the next call; already in their place if they are `wanted` bytes
  // and could be decompressed there. Nothing where rows may be without a value, or the page is damaged or
  // would decompress to more than `most` bytes.
  std::optional<std::span<const uint8_t>> values(const parquet::DataPage& page, size_t most, Place place,
                                                 size_t wanted);

  // The decompressed bytes of a dictionary, good until the next call.
  std::optional<std::span<const uint8_t>> values(const parquet::DictionaryPage& page, size_t most);

 private:
  using Bytes = std::span<const uint8_t>;

  std::optional<Bytes> decompressed(Bytes compressed, size_t most);
  bool decompress_in_place(const parquet::DataPageV1& page, Place place, size_t wanted);

  PackedPages pages_;
  const parquet::ColumnDescriptor& column_;
  arrow::MemoryPool& pool_;
  std::unique_ptr<uint8_t[]> room_;
  size_t room_bytes_ = 0;
  size_t levels_bytes_ = 0;  // of the last page, with their length
};

// Calls take(values, count) with the values of a chunk's `rows` rows, page by page; room(count) says where to
// put the next ones (a Place of T). False, with some of them taken or none, when the chunk is not of this
// kind. Throws what the Parquet library throws.
template <typename DType, typename Room, typename Take>
bool read_dense(DensePages& pages, size_t rows, const Room& room, const Take& take) {
  using T = typename DType::c_type;
  constexpr size_t most_of_levels = 1 << 16;
  const size_t most = rows * sizeof(T) + most_of_levels;
  std::unique_ptr<parquet::DictDecoder<DType>> by_dictionary;
  const auto plain =
      parquet::MakeTypedDecoder<DType>(parquet::Encoding::PLAIN, &pages.column(), &pages.pool());

  while (rows != 0) {
    const auto page = pages.next();
    if (page == nullptr) return false;
    if (page->type() == parquet::PageType::DICTIONARY_PAGE) {
      const auto& dictionary = static_cast<const parquet::DictionaryPage&>(*page);
      const auto bytes = pages.values(dictionary, most);
      if (!bytes || dictionary.num_values() < 0 ||
          bytes->size() != static_cast<size_t>(dictionary.num_values()) * sizeof(T) ||
          by_dictionary != nullptr) {
        return false;
      }
      plain->SetData(dictionary.num_values(), bytes->data(), static_cast<int>(bytes->size()));
      by_dictionary = parquet::MakeDictDecoder<DType>(&pages.column(), &pages.pool());
      by_dictionary->SetDict(plain.get());
      continue;
    }
    if (page->type() != parquet::PageType::DATA_PAGE && page->type() != parquet::PageType::DATA_PAGE_V2) {
      return false;
    }
    const auto& data = static_cast<const parquet::DataPage&>(*page);
    if (data.num_values() < 0 || static_cast<size_t>(data.num_values()) > rows) return false;
    const auto count = static_cast<size_t>(data.num_values());
    const auto [values, before] = room(count);
    const bool is_plain = data.encoding() == parquet::Encoding::PLAIN;
    const Place place{reinterpret_cast<uint8_t*>(values), before};
    const auto bytes = pages.values(data, most, is_plain ? place : Place{}, count * sizeof(T));
    if (!bytes) return false;
    if (is_plain) {
      if (bytes->size() != count * sizeof(T)) return false;
      if (count != 0 && bytes->data() != place.values) std::memcpy(values, bytes->data(), bytes->size());
    } else if (by_dictionary != nullptr && (data.encoding() == parquet::Encoding::RLE_DICTIONARY ||
                                            data.encoding() == parquet::Encoding::PLAIN_DICTIONARY)) {
      by_dictionary->SetData(data.num_values(), bytes->data(), static_cast<int>(bytes->size()));
      if (by_dictionary->Decode(values, data.num_values()) != data.num_values()) return false;
    } else {
      return false;
    }
    take(values, count);
    rows -= count;
  }
  return true;
}

}  // namespace mirn2::rd
