// Decompresses a part of a workbook in a thread of its own.
#include "backends/xlsx/read_ahead.h"

#include <cstring>
#include <utility>

namespace mirn2::rd::xlsx {

namespace {

constexpr size_t piece_size = size_t{256} << 10;

}  // namespace

ReadAhead::ReadAhead(std::unique_ptr<ByteSource> source) : source_(std::move(source)) {
  for (Piece& piece : pieces_) piece.bytes.resize(piece_size);
  thread_ = std::thread([this] { decompress(); });
}

ReadAhead::~ReadAhead() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void ReadAhead::decompress() {
  std::exception_ptr failure;
  for (size_t filling = 0;; filling = (filling + 1) % pieces_.size()) {
    Piece& piece = pieces_[filling];
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [&] { return stop_ || !piece.is_full; });
      if (stop_) return;
    }
    try {
      piece.size = source_->read(piece.bytes.data(), piece.bytes.size());
    } catch (...) {
      failure = std::current_exception();
    }
    const bool is_last = failure || piece.size == 0;
    {
      const std::lock_guard lock(mutex_);
      piece.is_full = !is_last;
      over_ = is_last;
      failure_ = failure;
    }
    changed_.notify_all();
    if (is_last) return;
  }
}

size_t ReadAhead::read(char* room, size_t size) {
  Piece& piece = pieces_[reading_];
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return piece.is_full || over_; });
    if (!piece.is_full) {
      if (failure_) std::rethrow_exception(failure_);
      return 0;
    }
  }
  const size_t got = std::min(size, piece.size - taken_);
  std::memcpy(room, piece.bytes.data() + taken_, got);
  taken_ += got;
  if (taken_ == piece.size) {
    taken_ = 0;
    reading_ = (reading_ + 1) % pieces_.size();
    {
      const std::lock_guard lock(mutex_);
      piece.is_full = false;
    }
    changed_.notify_all();
  }
  return got;
}

}  // namespace mirn2::rd::xlsx
