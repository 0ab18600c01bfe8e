// Fuzzes the reader of Parquet files: any bytes are scanned, then every variable is loaded, twice. Failures
// must be the reader's own, and x and y must have the same length.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "backends/parquet/parquet.h"
#include "memory_file.h"
#include "own_home.h"
#include "runtime/exc.h"

namespace {

constexpr size_t most_bytes = 1 << 18;
constexpr size_t most_variables = 40;

[[noreturn]] void complain(const std::string& what) {
  std::fprintf(stderr, "parquet_fuzz: %s\n", what.c_str());
  std::abort();
}

void gather(const std::vector<mirn2::rd::VariableNode>& nodes, std::vector<std::string>& names) {
  for (const auto& node : nodes) {
    names.push_back(node.full_name);
    gather(node.children, names);
  }
}

void load(mirn2::rd::Reader& reader, const std::string& name) {
  try {
    mirn2::rd::rto_t request{.tag_key = "fuzz", .name = name, .x = {}, .y = {}};
    reader.load(request);
    if (request.x.size() != request.y.size()) complain(name + ": x and y differ in length");
  } catch (const mirn3::exc::error_t&) {
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  give_own_home();
  if (size > most_bytes) return 0;
  const MemoryFile file(data, size);
  mirn2::rd::ReaderParquet reader(file.path());
  try {
    reader.scan();
  } catch (const mirn3::exc::error_t&) {
    return 0;
  }
  std::vector<std::string> names;
  gather(reader.variables(), names);
  if (names.size() > most_variables) names.resize(most_variables);
  for (const std::string& name : names) load(reader, name);
  reader.forget();
  for (const std::string& name : names) load(reader, name);
  return 0;
}
