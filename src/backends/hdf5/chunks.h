// The fast ways through a data set's bytes, for the common layouts: the library says where they lie, all
// cores decompress and convert them.
#pragma once

#include "backends/hdf5/table.h"

namespace mirn2::rd::hdf5 {

// As read_numbers, for chunked data sets whose only filters are byte shuffling, deflate and a checksum.
// False, and nothing done, for all others. What a chunk decompresses to is bounded by the size it should
// have.
bool read_chunks(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted,
                 std::string_view name);

// The same for data sets that lie in the file in one piece.
bool read_mapped(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted);

}  // namespace mirn2::rd::hdf5
