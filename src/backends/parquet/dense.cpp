// Reads column chunks without gaps straight from their pages.
#include "backends/parquet/dense.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "backends/parquet/snappy.h"

namespace mirn2::rd {

namespace {

using Bytes = std::span<const uint8_t>;

// Whether definition levels (runs, each a length and a level, of one byte as no column lies deeper) say that
// all of `rows` rows have their value. Other ways to write the same are not looked for.
bool all_present(Bytes levels, size_t rows, int16_t present) {
  size_t at = 0;
  while (rows != 0) {
    uint64_t header = 0;
    for (int shift = 0;; shift += 7) {
      if (at == levels.size() || shift > 28) return false;
      header |= uint64_t{levels[at] & 0x7fU} << shift;
      if (levels[at++] < 0x80) break;
    }
    const uint64_t run = header >> 1;
    const bool is_repeated = (header & 1) == 0;
    if (!is_repeated || run == 0 || at == levels.size() || levels[at++] != present) return false;
    rows -= std::min<uint64_t>(run, rows);
  }
  return true;
}

Bytes bytes_of(const parquet::Page& page) { return {page.data(), static_cast<size_t>(page.size())}; }

// What follows the levels of a decompressed page; nothing unless they say that every row has a value.
std::optional<Bytes> behind_levels(Bytes all, const parquet::DataPageV1& page, int16_t present) {
  uint32_t levels = 0;
  if (page.definition_level_encoding() != parquet::Encoding::RLE || all.size() < sizeof levels) return {};
  std::memcpy(&levels, all.data(), sizeof levels);
  if (levels > all.size() - sizeof levels) return {};
  const auto rows = static_cast<size_t>(page.num_values());
  if (!all_present(all.subspan(sizeof levels, levels), rows, present)) return {};
  return all.subspan(sizeof levels + levels);
}

}  // namespace

std::optional<Bytes> DensePages::decompressed(Bytes compressed, size_t most) {
  if (!pages_.is_snappy) return compressed;
  const auto size = snappy::decompressed_size(compressed);
  // Pages of a few bytes that become millions are rare, and nothing is gained here where they are damaged.
  if (!size || *size > most || *size > std::numeric_limits<int32_t>::max()) return {};
  if (*size > room_bytes_) {
    room_ = std::make_unique_for_overwrite<uint8_t[]>(*size);
    room_bytes_ = *size;
  }
  const std::span<uint8_t> out(room_.get(), *size);
  if (!snappy::decompress(compressed, out)) return {};
  return out;
}

std::optional<Bytes> DensePages::values(const parquet::DictionaryPage& page, size_t most) {
  if (page.encoding() != parquet::Encoding::PLAIN && page.encoding() != parquet::Encoding::PLAIN_DICTIONARY) {
    return {};
  }
  return decompressed(bytes_of(page), most);
}

// Decompresses a page so that its values come to lie in their place, given that its levels take as much as
// those of the page before. The levels then lie over what comes before the values, which is put back.
bool DensePages::decompress_in_place(const parquet::DataPageV1& page, Place place, size_t wanted) {
  constexpr size_t most_levels = 64;
  const bool has_levels = column_.max_definition_level() != 0;
  const size_t lead = has_levels ? levels_bytes_ : 0;
  const Bytes compressed = bytes_of(page);
  if (!pages_.is_snappy || place.values == nullptr || (has_levels && lead == 0) || lead > most_levels ||
      lead > place.before || snappy::decompressed_size(compressed) != lead + wanted) {
    return false;
  }
  uint8_t* const begin = place.values - lead;
  std::array<uint8_t, most_levels> saved;
  std::memcpy(saved.data(), begin, lead);
  bool is_fine = snappy::decompress(compressed, {begin, lead + wanted});
  if (is_fine && has_levels) {
    const auto values = behind_levels({begin, lead + wanted}, page, column_.max_definition_level());
    is_fine = values && values->data() == place.values;
  }
  std::memcpy(begin, saved.data(), lead);
  return is_fine;
}

std::optional<Bytes> DensePages::values(const parquet::DataPage& page, size_t most, Place place,
                                        size_t wanted) {
  const int16_t present = column_.max_definition_level();
  if (page.num_values() < 0) return {};
  const auto rows = static_cast<size_t>(page.num_values());
  if (page.type() == parquet::PageType::DATA_PAGE_V2) {  // its levels are not compressed
    const auto& second = static_cast<const parquet::DataPageV2&>(page);
    const Bytes all = bytes_of(page);
    const int64_t levels = second.definition_levels_byte_length();
    if (second.repetition_levels_byte_length() != 0 || levels < 0 ||
        static_cast<size_t>(levels) > all.size()) {
      return {};
    }
    if (present != 0 && !all_present(all.first(static_cast<size_t>(levels)), rows, present)) return {};
    const Bytes values = all.subspan(static_cast<size_t>(levels));
    return second.is_compressed() ? decompressed(values, most) : values;
  }
  const auto& first = static_cast<const parquet::DataPageV1&>(page);
  if (decompress_in_place(first, place, wanted)) return Bytes(place.values, wanted);
  const auto all = decompressed(bytes_of(page), most);
  if (!all || present == 0) return all;
  const auto values = behind_levels(*all, first, present);
  if (values) levels_bytes_ = all->size() - values->size();
  return values;
}

}  // namespace mirn2::rd
