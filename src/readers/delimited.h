// The reader of delimited text files: the first line names the columns, the first column is the time,
// every further column is one variable.
//
// Loading columns one after another in the order of the file is the common case and is read ahead:
// several columns come out of one walk over the rows, and the next loads only hand them over.
#pragma once

#include <filesystem>
#include <memory>

#include "readers/delimited_header.h"
#include "readers/kept.h"
#include "readers/reader.h"

namespace mirn2::rd {

class ReaderDelimited : public Reader {
 public:
  // Throws mirn3::exc::error_t for a delimiter that ends lines.
  ReaderDelimited(std::filesystem::path source, char field_delimiter);
  ~ReaderDelimited() override;

  void scan() override;
  void load(rto_t& request) override;
  void forget() noexcept override;

  char delimiter;             // the field separator
  int32_t time_type = 0;      // form of the time column (mirn3::utc::type_t)
  uint64_t header_lines = 1;  // lines before the first data row
  // Elements reserved for a column: the file's lines plus 100. Lines are counted by the first load, in
  // the walk that finds the rows, so that opening a file touches only its head.
  uint64_t row_capacity = 0;

 private:
  struct Learned;

  // What is known of the file as it is now; learned again, for a load of this column, when it has changed.
  std::shared_ptr<Learned> learn(uint64_t column);

  Kept<Learned> kept_;
};

}  // namespace mirn2::rd
