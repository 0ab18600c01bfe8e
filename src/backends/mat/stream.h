// A stretch of bytes that is read once from front to back: as in the file, or inflated on the way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace mirn2::rd::mat {

using Bytes = std::span<const unsigned char>;

class Stream {
 public:
  virtual ~Stream() = default;

  // Fills `to`, or throws mirn3::exc::error_t where the stretch ends too early or is damaged.
  virtual void read(std::span<unsigned char> to) = 0;
  virtual void skip(uint64_t n) = 0;
  // The next n bytes where they lie, and moves on; empty when they are not in memory.
  virtual Bytes view(uint64_t) { return {}; }

  uint64_t position() const noexcept { return position_; }

 protected:
  uint64_t position_ = 0;
};

// The file must stay mapped for as long as the stream lives.
std::unique_ptr<Stream> plain_stream(Bytes bytes);
std::unique_ptr<Stream> inflating_stream(Bytes bytes);

// The most that so many compressed bytes can decompress to.
constexpr uint64_t most_inflated(uint64_t compressed) noexcept { return compressed * 1032 + 1024; }

}  // namespace mirn2::rd::mat
