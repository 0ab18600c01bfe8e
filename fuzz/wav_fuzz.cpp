// Fuzzes the reader of WAV files: any bytes are probed and scanned, then channels are loaded and compared
// with samples that are fetched here one by one.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "memory_file.h"
#include "own_home.h"
#include "readers/wav.h"
#include "runtime/exc.h"

namespace {

using mirn2::rd::ReaderWAV;

constexpr size_t most_bytes = 1 << 20;
constexpr uint64_t most_channels = 300;  // naming 65535 of them takes longer than all the rest

[[noreturn]] void complain(const std::string& what) {
  std::fprintf(stderr, "wav_fuzz: %s\n", what.c_str());
  std::abort();
}

struct Bytes {
  const uint8_t* data;
  size_t size;

  // The little-endian number of `width` bytes, zeros where the file has ended.
  uint64_t at(uint64_t offset, size_t width) const {
    uint64_t value = 0;
    for (size_t i = width; i-- > 0;) value = value << 8 | (offset + i < size ? data[offset + i] : 0);
    return value;
  }
};

double sample(uint64_t bits, size_t width) {
  if (width == 1) return static_cast<double>(bits);
  return width == 2 ? static_cast<double>(static_cast<int16_t>(bits))
                    : static_cast<double>(static_cast<int32_t>(bits));
}

void check(const Bytes& file, ReaderWAV& reader, uint64_t channel) {
  const uint64_t extra = std::max<uint64_t>(file.at(16, 4), 16) - 16;
  const uint64_t channels = file.at(22, 2), bits = file.at(34, 2), rate = file.at(24, 4);
  const uint64_t data = std::min<uint64_t>(44 + extra, file.size);
  const uint64_t present = std::min<uint64_t>(file.at(40 + extra, 4), file.size - data);
  const uint64_t samples = present * 8 / (channels * bits);
  const size_t width = bits / 8;
  const bool readable = file.at(20, 2) == 1 && (width == 1 || width == 2 || width == 4);

  const std::string name = "channel" + std::to_string(channel + 1);
  mirn2::rd::rto_t request{.tag_key = "", .name = name, .x = {}, .y = {}};
  try {
    reader.load(request);
    if (!readable) complain("read what is not PCM of a known width");
  } catch (const mirn3::exc::error_t&) {
    if (readable) complain("refused readable samples");
  }
  if (request.x.size() != samples) complain("wrong number of times");
  if (request.y.size() != (readable ? samples : 0)) complain("wrong number of samples");
  const double step = rate != 0 ? 1.0 / static_cast<double>(rate) : 1.0;
  for (uint64_t i = 0; i < samples; ++i) {
    if (request.x[i] != static_cast<double>(i) * step) complain("wrong time");
    if (readable && request.y[i] != sample(file.at(data + (i * channels + channel) * width, width), width))
      complain("wrong sample");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  give_own_home();
  if (size > most_bytes) return 0;
  const Bytes bytes{data, size};
  if (bytes.at(22, 2) > most_channels) return 0;
  const MemoryFile file(data, size);
  std::string why;
  if (mirn2::rd::probe_wav(file.path(), &why) != why.empty()) complain("a verdict without its reason");
  ReaderWAV reader(file.path());
  try {
    reader.scan();
  } catch (const mirn3::exc::error_t&) {
    return 0;
  }
  const uint64_t channels = reader.variables().size();
  for (const uint64_t channel : {uint64_t{0}, channels / 2, channels - 1}) check(bytes, reader, channel);
  return 0;
}
