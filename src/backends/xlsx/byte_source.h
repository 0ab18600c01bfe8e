// Where the XML readers get their bytes from: a part of a workbook, or memory in tests.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace mirn2::rd::xlsx {

class ByteSource {
 public:
  virtual ~ByteSource() = default;

  // Fills `room` as far as it can; 0 at the end. Throws mirn3::exc::error_t.
  virtual size_t read(char* room, size_t size) = 0;
};

class TextSource : public ByteSource {
 public:
  explicit TextSource(std::string_view text) : text_(text) {}
  size_t read(char* room, size_t size) override {
    const size_t got = text_.copy(room, size);
    text_.remove_prefix(got);
    return got;
  }

 private:
  std::string_view text_;
};

}  // namespace mirn2::rd::xlsx
