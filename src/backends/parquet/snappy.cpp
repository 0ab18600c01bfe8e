// Decompresses Snappy, the compression of most Parquet files.
#include "backends/parquet/snappy.h"

#include <cstring>

namespace mirn2::rd::snappy {

namespace {

// What the two low bits of a tag say about the piece after it.
enum Kind : uint8_t { literal = 0, copy_near = 1, copy_usual = 2, copy_far = 3 };

constexpr size_t word = 8;
constexpr size_t short_literal = 2 * word;

// Away from the ends by this much, the input holds whatever a short literal and the copy after it can take,
// and the output has room for both, rounded up to words.
constexpr ptrdiff_t input_reach = 32;
constexpr ptrdiff_t output_reach = 96;

void move_word(uint8_t* to, const uint8_t* from) noexcept {
  uint64_t bytes;
  std::memcpy(&bytes, from, word);
  std::memcpy(to, &bytes, word);
}

// Reads a little-endian number of up to four bytes.
uint32_t read_number(const uint8_t* p, size_t bytes) noexcept {
  uint32_t value = 0;
  for (size_t i = 0; i < bytes; ++i) value |= uint32_t{p[i]} << (8 * i);
  return value;
}

struct Preamble {
  uint32_t size;  // decompressed
  size_t bytes;   // of the preamble
};

std::optional<Preamble> read_preamble(std::span<const uint8_t> compressed) noexcept {
  uint64_t size = 0;
  for (size_t i = 0; i < compressed.size() && i < 5; ++i) {
    size |= uint64_t{compressed[i] & 0x7fU} << (7 * i);
    if (compressed[i] < 0x80) {
      if (size > 0xffffffff) break;
      return Preamble{static_cast<uint32_t>(size), i + 1};
    }
  }
  return {};
}

class Decompression {
 public:
  Decompression(std::span<const uint8_t> in, std::span<uint8_t> out) noexcept
      : in_(in.data()),
        in_end_(in_ + in.size()),
        to_(out.data()),
        out_begin_(to_),
        out_end_(to_ + out.size()) {}

  bool run() noexcept {
    while (in_ != in_end_) {
      take_short_pieces();
      if (in_ != in_end_ && !take_piece()) return false;
    }
    return to_ == out_end_;
  }

 private:
  // Takes pieces as long as they are of the usual kinds and away from the ends; stops before any other.
  //
  // Literals are followed by copies. Copies are moved by words because a wider read of bytes just written
  // would have to wait until they are in the cache.
  void take_short_pieces() noexcept {
    if (in_end_ - in_ <= input_reach || out_end_ - to_ <= output_reach) return;
    const uint8_t* const in_end = in_end_ - input_reach;
    const uint8_t* const out_end = out_end_ - output_reach;
    const uint8_t* in = in_;
    uint8_t* to = to_;
    while (in < in_end && to < out_end) {
      uint32_t tag = *in;
      if ((tag & 3) == literal) {
        const size_t length = (tag >> 2) + 1;
        if (length > short_literal) break;
        move_word(to, in + 1);
        move_word(to + word, in + 1 + word);
        in += 1 + length;
        to += length;
        tag = *in;
        if ((tag & 3) == literal) continue;
      }
      if ((tag & 3) == copy_far) break;
      if ((tag & 3) == copy_near) {
        const size_t length = 4 + (tag >> 2 & 7);
        const size_t offset = (tag & 0xe0) << 3 | in[1];
        if (offset < word || offset > static_cast<size_t>(to - out_begin_)) break;
        in += 2;
        move_word(to, to - offset);
        if (length > word) move_word(to + word, to + word - offset);
        to += length;
      } else {
        const size_t length = (tag >> 2) + 1;
        const size_t offset = size_t{in[2]} << 8 | in[1];
        if (offset < word || offset > static_cast<size_t>(to - out_begin_)) break;
        in += 3;
        uint8_t* const end = to + length;
        for (; to < end; to += word) move_word(to, to - offset);
        to = end;
      }
    }
    in_ = in;
    to_ = to;
  }

  // Takes the next piece, whatever it is. False when it is damaged.
  bool take_piece() noexcept {
    const uint8_t tag = *in_++;
    const auto kind = static_cast<Kind>(tag & 3);
    size_t length = (size_t{tag} >> 2) + 1;
    if (kind == literal) {
      if (length > 60) {  // its length, less one, follows in so many bytes
        const size_t bytes = length - 60;
        if (in_left() < bytes) return false;
        length = size_t{read_number(in_, bytes)} + 1;
        in_ += bytes;
      }
      if (in_left() < length || room() < length) return false;
      std::memcpy(to_, in_, length);
      in_ += length;
      to_ += length;
      return true;
    }
    const size_t bytes = kind == copy_far ? 4 : kind;
    if (in_left() < bytes) return false;
    size_t offset = read_number(in_, bytes);
    in_ += bytes;
    if (kind == copy_near) {
      length = 4 + (tag >> 2 & 7);
      offset |= size_t{tag & 0xe0U} << 3;
    }
    if (offset == 0 || offset > static_cast<size_t>(to_ - out_begin_) || length > room()) return false;
    repeat(offset, length);
    return true;
  }

  // Repeats what lies `offset` bytes back. A copy may reach into what it writes itself.
  void repeat(size_t offset, size_t length) noexcept {
    uint8_t* to = to_;
    const uint8_t* from = to - offset;
    uint8_t* const end = to + length;
    to_ = end;
    if (static_cast<size_t>(out_end_ - to) < length + 2 * word) {
      while (to != end) *to++ = *from++;
      return;
    }
    // A pattern of less than a word doubles with every step, until whole words can be taken.
    while (static_cast<size_t>(to - from) < word) {
      move_word(to, from);
      to += to - from;
      if (to >= end) return;
    }
    for (; to < end; to += word, from += word) move_word(to, from);
  }

  size_t in_left() const noexcept { return static_cast<size_t>(in_end_ - in_); }
  size_t room() const noexcept { return static_cast<size_t>(out_end_ - to_); }

  const uint8_t* in_;
  const uint8_t* const in_end_;
  uint8_t* to_;
  const uint8_t* const out_begin_;
  const uint8_t* const out_end_;
};

}  // namespace

std::optional<uint32_t> decompressed_size(std::span<const uint8_t> compressed) noexcept {
  const auto preamble = read_preamble(compressed);
  if (!preamble) return {};
  return preamble->size;
}

bool decompress(std::span<const uint8_t> compressed, std::span<uint8_t> out) noexcept {
  const auto preamble = read_preamble(compressed);
  return preamble && preamble->size == out.size() &&
         Decompression(compressed.subspan(preamble->bytes), out).run();
}

}  // namespace mirn2::rd::snappy
