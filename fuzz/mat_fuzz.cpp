// Fuzzes the headers of MAT files: any bytes are walked through, and what is found must lie inside its
// element.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "backends/mat/layout.h"
#include "backends/mat/stream.h"
#include "runtime/exc.h"

namespace {

using mirn2::rd::mat::Array;
using mirn2::rd::mat::Bytes;
using mirn2::rd::mat::Layout;

void look_at(const Array& array, const Layout& layout, Bytes file, int level) {
  if (level > 40) std::abort();
  for (const auto& part : array.parts) {
    const auto& element = layout.elements.at(part.element);
    const std::uint64_t bytes = array.rows * array.columns * mirn2::rd::samples::width(part.number.kind);
    if (!element.compressed && part.offset > element.size) std::abort();
    try {
      const auto stream = open_element(file, element);
      stream->skip(part.offset);
      std::vector<unsigned char> all(bytes < 1 << 20 ? bytes : 1 << 20);
      stream->read(all);
    } catch (const mirn3::exc::error_t&) {  // cut
    }
  }
  for (const Array& child : array.children) look_at(child, layout, file, level + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1 << 18) return 0;
  try {
    const Layout layout =
        mirn2::rd::mat::find_arrays({data, size}, [](std::string_view, std::string_view) {});
    for (const Array& array : layout.arrays) look_at(array, layout, {data, size}, 0);
  } catch (const mirn3::exc::error_t&) {
  }
  return 0;
}
