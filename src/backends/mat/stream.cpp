// Streams over mapped bytes, plain and inflated.
#include "backends/mat/stream.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "runtime/exc.h"

namespace mirn2::rd::mat {

namespace {

using mirn3::exc::error_t;

class PlainStream final : public Stream {
 public:
  explicit PlainStream(Bytes bytes) : bytes_(bytes) {}

  void read(std::span<unsigned char> to) override {
    const Bytes from = view(to.size());
    if (!from.empty()) std::memcpy(to.data(), from.data(), from.size());
  }
  void skip(uint64_t n) override { view(n); }
  Bytes view(uint64_t n) override {
    if (n > bytes_.size() - position_) throw error_t("the data end too early");
    const Bytes found = bytes_.subspan(position_, n);
    position_ += n;
    return found;
  }

 private:
  Bytes bytes_;
};

class InflatingStream final : public Stream {
 public:
  explicit InflatingStream(Bytes bytes) {
    if (inflateInit(&state_) != Z_OK) throw error_t("no memory to decompress");
    left_ = bytes;
  }
  ~InflatingStream() override { inflateEnd(&state_); }

  void read(std::span<unsigned char> to) override {
    size_t done = 0;
    while (done < to.size()) {
      feed();
      const auto room = static_cast<uInt>(std::min<size_t>(to.size() - done, most_at_once));
      state_.next_out = to.data() + done;
      state_.avail_out = room;
      const uInt had = state_.avail_in;
      const int outcome = inflate(&state_, Z_NO_FLUSH);
      const size_t got = room - state_.avail_out;
      done += got;
      if (outcome == Z_STREAM_END && done < to.size()) throw error_t("the compressed data end too early");
      if (outcome != Z_OK && outcome != Z_STREAM_END) throw error_t("the compressed data are damaged");
      if (got == 0 && had == state_.avail_in) throw error_t("the compressed data end too early");
    }
    position_ += to.size();
  }

  void skip(uint64_t n) override {
    std::array<unsigned char, 1 << 14> room;
    for (; n > 0; n -= std::min<uint64_t>(n, room.size()))
      read(std::span(room).first(std::min<uint64_t>(n, room.size())));
  }

 private:
  static constexpr size_t most_at_once = 1 << 30;

  void feed() {
    if (state_.avail_in > 0) return;
    const size_t n = std::min(left_.size(), most_at_once);
    state_.next_in = const_cast<unsigned char*>(left_.data());
    state_.avail_in = static_cast<uInt>(n);
    left_ = left_.subspan(n);
  }

  z_stream state_{};
  Bytes left_;
};

}  // namespace

std::unique_ptr<Stream> plain_stream(Bytes bytes) { return std::make_unique<PlainStream>(bytes); }
std::unique_ptr<Stream> inflating_stream(Bytes bytes) { return std::make_unique<InflatingStream>(bytes); }

}  // namespace mirn2::rd::mat
