// The fast way through compressed data sets: the library hands over stored chunks, all cores unpack them.
#pragma once

#include "backends/hdf5/table.h"

namespace mirn2::rd::hdf5 {

// As read_numbers, for chunked data sets whose only filters are byte shuffling and deflate. False, and
// nothing done, for all others. What a chunk unpacks to is bounded by the size it should have.
bool read_chunks(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted,
                 std::string_view name);

}  // namespace mirn2::rd::hdf5
