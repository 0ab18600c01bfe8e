// The reader of clipboard text: delimited text that lies in memory in place of a file.
#pragma once

#include <memory>
#include <string_view>

#include "readers/delimited.h"
#include "readers/reader.h"

namespace mirn2::rd {

class ReaderClipboard : public Reader {
 public:
  // Throws mirn3::exc::error_t "Clipboard data is not compatible with any built-in loaders" for text that
  // is not delimited text.
  explicit ReaderClipboard(std::string_view text);
  ~ReaderClipboard() override;

  void scan() override;
  void load(rto_t& request) override;
  void forget() noexcept override;

 private:
  int file_ = -1;  // the text, as a file that exists in memory only
  std::unique_ptr<ReaderDelimited> reader_;
};

}  // namespace mirn2::rd
