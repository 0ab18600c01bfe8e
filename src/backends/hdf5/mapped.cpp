// Data sets that lie in one piece: straight from the mapped file, on all cores.
#include <string>

#include "backends/hdf5/chunks.h"
#include "runtime/par.h"
#include "runtime/sys.h"

namespace mirn2::rd::hdf5 {

bool read_mapped(hid_t dataset, const Table& table, uint64_t rows, std::span<const Wanted> wanted) {
  constexpr size_t least_rows = 1 << 16;
  const Properties creation(H5Dget_create_plist(dataset), "HDF5: layout");
  const Type type(H5Dget_type(dataset), "HDF5: type");
  const haddr_t offset = H5Dget_offset(dataset);
  if (H5Pget_layout(creation) != H5D_CONTIGUOUS || offset == HADDR_UNDEF || !is_stored_as_read(type))
    return false;
  std::string path(static_cast<size_t>(std::max<ssize_t>(0, H5Fget_name(dataset, nullptr, 0))), '\0');
  if (path.empty() || H5Fget_name(dataset, path.data(), path.size() + 1) < 0) return false;
  const mirn3::sys::Mapping file{std::filesystem::path(path)};
  const size_t element = H5Tget_size(type);
  uint64_t needed = 0;
  if (__builtin_mul_overflow(table.rows, table.columns, &needed) ||
      __builtin_mul_overflow(needed, element, &needed) || offset > file.bytes().size() ||
      needed > file.bytes().size() - offset)
    return false;  // the library says what is wrong
  const unsigned char* const data = file.bytes().data() + offset;
  const bool by_columns = table.row_dimension == 1;
  const size_t stride = element * (by_columns ? 1 : table.columns);
  mirn3::par::ranges(rows, least_rows, [&](size_t first, size_t last) {
    for (const Wanted& w : wanted) {
      const unsigned char* const column = data + w.column * element * (by_columns ? table.rows : 1);
      samples::widen(w.leaf->number, column + first * stride + w.leaf->offset, stride, last - first,
                     w.to + first);
    }
  });
  return true;
}

}  // namespace mirn2::rd::hdf5
