// Fuzzes the reader of Parquet files: any bytes are scanned, then every variable is loaded, twice. Bytes that
// do not even begin like such a file are taken for packed ones, on which our Snappy and the library's must
// agree.
#include <arrow/util/compression.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "backends/parquet/parquet.h"
#include "backends/parquet/snappy.h"
#include "load_all.h"
#include "memory_file.h"
#include "own_home.h"

namespace {

constexpr size_t most_bytes = 1 << 18;
constexpr size_t most_variables = 40;
constexpr size_t most_unpacked = 1 << 20;

void unpack_both_ways(std::span<const uint8_t> packed) {
  namespace snappy = mirn2::rd::snappy;
  const auto size = snappy::decompressed_size(packed);
  if (!size || *size > most_unpacked) return;
  std::vector<uint8_t> ours(*size), theirs(*size);
  const bool is_fine = snappy::decompress(packed, ours);
  static const auto codec = arrow::util::Codec::Create(arrow::Compression::SNAPPY).ValueOrDie();
  const auto unpacked = codec->Decompress(static_cast<int64_t>(packed.size()), packed.data(),
                                          static_cast<int64_t>(theirs.size()), theirs.data());
  if (is_fine != unpacked.ok()) complain(is_fine ? "damage found" : "sound bytes taken");
  if (is_fine && ours != theirs) complain("the same bytes unpacked");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  give_own_home();
  if (size > most_bytes) return 0;
  constexpr std::string_view begins = "PAR1";
  if (size < begins.size() || std::memcmp(data, begins.data(), begins.size()) != 0) {
    unpack_both_ways({data, size});
  }
  const MemoryFile file(data, size);
  mirn2::rd::ReaderParquet reader(file.path());
  load_all(reader, most_variables);
  return 0;
}
