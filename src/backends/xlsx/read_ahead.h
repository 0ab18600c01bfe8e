// Decompresses a part in a thread of its own, ahead of who reads it: decompressing and scanning take about as
// long.
#pragma once

#include <array>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "backends/xlsx/byte_source.h"

namespace mirn2::rd::xlsx {

class ReadAhead : public ByteSource {
 public:
  explicit ReadAhead(std::unique_ptr<ByteSource> source);
  ~ReadAhead() override;  // waits for the piece that is being decompressed

  // Like the source; throws what the source threw, after the bytes before it.
  size_t read(char* room, size_t size) override;

 private:
  struct Piece {
    std::vector<char> bytes;
    size_t size = 0;
    bool is_full = false;
  };

  void decompress();

  std::unique_ptr<ByteSource> source_;
  std::array<Piece, 4> pieces_;
  size_t reading_ = 0;  // piece that read() takes from
  size_t taken_ = 0;    // bytes of it that it took
  std::mutex mutex_;    // guards is_full, stop_ and over_
  std::condition_variable changed_;
  bool stop_ = false;
  bool over_ = false;  // no more pieces come
  std::exception_ptr failure_;
  std::thread thread_;  // last: uses all of the above
};

}  // namespace mirn2::rd::xlsx
