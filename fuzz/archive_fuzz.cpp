// Unpacking any bytes: nothing leaves the folder, no limit is passed, whatever the archive says.
//
// Input: a byte that chooses the format; then the archive. A gzipped tar may also be given as the tar alone,
// which is then packed here, so that changes reach the entries.
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "own_home.h"
#include "runtime/exc.h"
#include "runtime/zip.h"

namespace {

namespace fs = std::filesystem;
namespace zip = mirn3::zip;

using Extract = decltype(&zip::extract_zip);

constexpr zip::Limits limits{.bytes = 1 << 20, .entries = 100};

int file = -1;
std::string path;
fs::path outer, folder;

void expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "Does not hold: %s\n", what);
  std::abort();
}

std::string gzipped(const std::string& content) {
  std::string packed(content.size() + 1024, '\0');
  z_stream stream{};
  expect(deflateInit2(&stream, 1, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) == Z_OK, "deflate");
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  expect(deflate(&stream, Z_FINISH) == Z_STREAM_END, "deflate to the end");
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  outer = fs::path(give_own_home()) / "outer";
  folder = outer / "a" / "b";
  file = memfd_create("archive", 0);
  path = "/proc/self/fd/" + std::to_string(file);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 65536) return 0;
  const Extract formats[] = {zip::extract_zip, zip::extract_7zip, zip::extract_tgz, zip::extract_tgz};
  const unsigned format = data[0] % 4;
  std::string content(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (format == 3) content = gzipped(content);
  expect(ftruncate(file, 0) == 0, "truncate");
  expect(pwrite(file, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()), "write");
  fs::remove_all(outer);
  fs::create_directories(folder);
  uint64_t total = 0;
  try {
    for (const zip::Entry& entry : formats[format](path, folder, limits)) {
      expect(fs::is_regular_file(fs::symlink_status(folder / entry.name)), "a regular file");
      expect(fs::file_size(folder / entry.name) == entry.size, "size");
      total += entry.size;
    }
  } catch (const mirn3::exc::error_t&) {
  }
  expect(total <= limits.bytes, "limit of bytes");
  for (const fs::path& place : {outer, outer / "a"}) {
    expect(std::distance(fs::directory_iterator(place), fs::directory_iterator()) == 1,
           "nothing beside the folder");
  }
  for (const fs::directory_entry& found : fs::recursive_directory_iterator(folder)) {
    expect(!found.is_symlink() && (found.is_regular_file() || found.is_directory()),
           "files and folders only");
  }
  return 0;
}
