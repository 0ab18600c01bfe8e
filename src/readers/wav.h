// Uncompressed PCM audio in RIFF WAVE files: every channel is a variable (channel1, channel2, ...), its
// time made from the sample rate, its values the raw integers.
//
// The layout is fixed: RIFF header, format chunk, data chunk, one after the other; other chunks may
// follow them. Where a header is wrong:
// - The number of samples comes from the data chunk's size, limited to the bytes that exist; a file that ends
//   early gives what it has. It is computed in 64 bits, so data of 512 MiB and more is read whole.
// - Another chunk in place of the data chunk is read as if it were the data.
// - A sample rate of 0 gives sample indexes as time, with the warnings of an invalid time vector.
// - Header bytes after the end of the file count as zeros.
// What was odd about a file goes to the log once for each state of it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

#include "readers/kept.h"
#include "readers/reader.h"
#include "runtime/sys.h"

namespace mirn2::rd {

// Whether the file has the one layout that ReaderWAV reads: whole headers, RIFF and WAVE marks,
// and the format chunk first. If not and `why` is given, it says what was found instead.
// Throws mirn3::exc::error_t for a file that cannot be opened.
bool probe_wav(const std::filesystem::path& path, std::string* why = nullptr);

class ReaderWAV : public Reader {
 public:
  explicit ReaderWAV(std::filesystem::path source);

  // Throws mirn3::exc::error_t "Invalid 'bitsPerSample' value" or "Number of channels cannot be zero",
  // and for a file that cannot be opened.
  void scan() override;

  // A format that is not PCM, or a sample width other than 1, 2 or 4 bytes, throws
  // mirn3::exc::error_t with request.x filled; so does an unknown name, without.
  void load(rto_t& request) override;

  void forget() noexcept override;

 private:
  struct Learned;

  std::shared_ptr<Learned> learn();

  std::optional<mirn3::sys::FileStamp> reported_;  // the state of the file whose oddities were logged
  Kept<Learned> kept_;
};

}  // namespace mirn2::rd
